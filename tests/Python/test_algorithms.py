"""Algorithms by id, their parameters, progress and errors; the log."""

import _thread
import logging
import os
import threading
import unittest

import kelvaris
import numpy as np

for plugin in os.environ["PLUGINS"].split(":"):
    kelvaris.load_plugin(plugin)


def images(value=1.0, count=1):
    return kelvaris.SharedImageSet([np.full((3, 4), value, "float32") for _ in range(count)])


class CatalogueTest(unittest.TestCase):
    def test_what_there_is(self):
        self.assertLessEqual({"Test.Gain", "PythonTest.Steps"}, {a.id for a in kelvaris.algorithms()})
        self.assertEqual({a.name for a in kelvaris.algorithms(images())}, {"Gain", "Make Levels", "Steps"})
        self.assertEqual([a.id for a in kelvaris.algorithms([])], ["PythonTest.Counting", "PythonTest.Execute"])
        loaded = {p.id: p.loaded for p in kelvaris.plugins()}
        self.assertTrue(loaded["Kelvaris.Test"] and loaded["Kelvaris.PythonTest"])

    def test_ids_and_data_that_do_not_fit(self):
        integers = kelvaris.SharedImageSet([np.zeros((2, 2), "int16")])
        cases = [
            (ValueError, 'no algorithm "Gian"; there are: .*Gain', lambda: kelvaris.create("Gian", images())),
            (ValueError, "Gain does not work on.*int16.*what does: Steps", lambda: kelvaris.create("Gain", integers)),
            (ValueError, "no data.*what does: Counting, Execute", lambda: kelvaris.create("Gain")),
            (TypeError, "expected a SharedImageSet", lambda: kelvaris.create("Gain", np.zeros((2, 2), "f4"))),
            (TypeError, "expected a SharedImageSet", lambda: kelvaris.create("Gain", [images(), 3])),
            (RuntimeError, "absent.so", lambda: kelvaris.load_plugin("/absent.so")),
        ]
        for kind, text, call in cases:
            with self.subTest(text=text), self.assertRaisesRegex(kind, text):
                call()
        refused = kelvaris.plugins()[0]
        self.assertEqual((refused.path, refused.loaded), ("/absent.so", False))
        self.assertIn("absent.so", refused.reason)


class ParameterTest(unittest.TestCase):
    def test_values(self):
        gain = kelvaris.create("Gain", images())
        before = gain.parameters
        self.assertEqual(
            before,
            {"factor": 1.0, "offset": None, "outputSize": (512, 512), "mode": "Plain", "levels": False, "count": 3,
             "label": "", "trouble": "None", "at": 0},
        )  # fmt: skip
        values = {
            "factor": 2, "offset": np.float64(0.5), "outputSize": np.array([3, 4]), "mode": "Hamming Das",
            "levels": np.bool_(True), "count": np.int16(-5), "label": "ä", "trouble": 1, "at": 2,
        }  # fmt: skip
        gain.set(**values)
        self.assertEqual(
            gain.parameters,
            {"factor": 2.0, "offset": 0.5, "outputSize": (3, 4), "mode": "Hamming Das", "levels": True, "count": -5,
             "label": "ä", "trouble": "Fail", "at": 2},
        )  # fmt: skip
        gain.set(offset=None)
        self.assertIsNone(gain.parameters["offset"])
        offset = gain.describe()[1]
        self.assertEqual((offset.name, offset.type, offset.value, offset.default), ("offset", "float or None", None, None))
        self.assertEqual(offset.hints, {"max": "5", "min": "-5", "suffix": "dB"})
        self.assertEqual(kelvaris.create("Levels", images()).parameters["levels"], True)

    def test_values_that_are_refused(self):
        gain = kelvaris.create("Gain", images())
        cases = [
            ({"factor": "2"}, TypeError, "factor of Gain is '2' .str.; expected a float"),
            ({"factor": True}, TypeError, "expected a float"),
            ({"factor": 10**400}, ValueError, "expected a float"),
            ({"offset": []}, TypeError, "expected a float, or None"),
            ({"outputSize": (1, 2, 3)}, ValueError, "expected two ints"),
            ({"mode": "Hamming"}, ValueError, 'expected one of "Plain", "Hamming Das"'),
            ({"mode": 3}, ValueError, "expected one of"),
            ({"levels": 1}, TypeError, "expected a bool"),
            ({"count": True}, TypeError, "expected an int"),
            ({"count": 2**31}, ValueError, "expected an int"),
            ({"fcator": 2.0}, ValueError, 'Gain has no parameter "fcator"; it has factor, offset'),
        ]
        for values, kind, text in cases:
            with self.subTest(values=values), self.assertRaisesRegex(kind, text):
                gain.set(count=9, **values) if "count" not in values else gain.set(**values)
            self.assertEqual(gain.parameters["count"], 3, "all or none")
        with self.assertRaises(TypeError):
            kelvaris.create("Gain", images(), factor="x")


class ComputeTest(unittest.TestCase):
    def test_results_and_lifetimes(self):
        gain = kelvaris.create("Gain", images(2.0, count=2), factor=3)  # the only owner of its input
        result = gain.compute()
        del gain
        self.assertEqual([image.array().flat[0] for image in result], [6.0, 6.0])
        self.assertIs(result.properties["gained"], True)
        self.assertEqual(kelvaris.run("Gain", result, offset=1)[0].array().flat[0], 7.0)
        source = images(1.0)
        same = kelvaris.run("Steps", source)
        del source
        self.assertEqual(same[0].array().sum(), 12)

    def test_failures_carry_the_reason(self):
        with self.assertRaisesRegex(kelvaris.AlgorithmError, "Gain failed with status 1: No image came out"):
            kelvaris.run("Gain", images(), trouble="Fail")
        with self.assertRaisesRegex(RuntimeError, "the device is gone"):
            kelvaris.run("Gain", images(), trouble="Throw")
        with self.assertRaisesRegex(kelvaris.AlgorithmError, "Step 1 is broken"):
            kelvaris.run("Steps", images(), failAt=1)

    def test_progress(self):
        steps = kelvaris.create("Steps", images(), steps=4)
        seen = []
        steps.compute(progress=lambda *step: seen.append(step))
        self.assertEqual(seen, [("Stepping", i, 4) for i in range(5)])
        with self.assertRaisesRegex(kelvaris.Canceled, "Steps was cancelled"):
            steps.compute(lambda text, step, steps: step < 2)

        def broken(text, step, steps):
            seen.append(step)
            raise KeyError("mine")

        seen.clear()
        with self.assertRaisesRegex(KeyError, "mine"):
            steps.compute(broken)
        self.assertEqual(seen, [0], "not called again")
        self.assertEqual(len(steps.compute()), 1, "usable after all that")

    def test_interrupt(self):
        steps = kelvaris.create("Steps", images(), steps=100000)
        timer = threading.Timer(0.05, _thread.interrupt_main)
        timer.start()
        with self.assertRaises(KeyboardInterrupt):
            steps.compute()
        timer.join()

    def test_other_threads_run_meanwhile(self):
        steps = kelvaris.create("Steps", images(), steps=100000)
        stop, results = threading.Event(), []

        def work():
            try:
                steps.compute(lambda *_: not stop.is_set())
            except kelvaris.Canceled as error:
                results.append(error)

        thread = threading.Thread(target=work)
        thread.start()
        while True:  # until it has begun
            try:
                steps.compute(lambda *_: False)
            except kelvaris.Canceled:
                continue
            except RuntimeError as error:
                self.assertIn("running already", str(error))
                break
        steps.set(failAt=-2)
        self.assertEqual(steps.parameters["steps"], 100000)
        stop.set()
        thread.join()
        self.assertEqual(len(results), 1)


class InterpreterTest(unittest.TestCase):
    def test_the_host_uses_the_python_that_runs(self):
        import sys

        kelvaris.load_plugin(os.environ["PYTHON_PLUGIN"])
        sys.mark = 17
        kelvaris.run("Execute", text="import sys; sys.mark += 1; defined = 3")
        self.assertEqual(sys.mark, 18)
        self.assertEqual(sys.modules["kelvaris_host"].defined, 3)
        self.assertNotIn("defined", vars(sys.modules["__main__"]))
        with self.assertRaisesRegex(RuntimeError, "ZeroDivisionError"):
            kelvaris.run("Execute", text="1 / 0")
        thread = threading.Thread(target=kelvaris.run, args=("Execute",), kwargs={"text": "sys.mark += 1"})
        thread.start()
        thread.join()
        self.assertEqual(sys.mark, 19)


class LogTest(unittest.TestCase):
    def test_it_reaches_python(self):
        with self.assertLogs("kelvaris", logging.ERROR) as logged, self.assertRaises(kelvaris.AlgorithmError):
            kelvaris.run("Steps", images(), failAt=0)
        self.assertEqual([(r.name, r.getMessage()) for r in logged.records], [("kelvaris.Steps", "Step 0 is broken")])
        kelvaris.log_to_python(False)
        try:
            with self.assertNoLogs("kelvaris"), self.assertRaises(kelvaris.AlgorithmError):
                kelvaris.run("Steps", images(), failAt=0)
        finally:
            kelvaris.log_to_python()


if __name__ == "__main__":
    unittest.main()
