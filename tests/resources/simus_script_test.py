"""The script of the simulation bridge against direct calls of the toolbox.

simus_script_test.py VENV: runs in the virtual environment VENV where there is one. Status 77: no toolbox, skipped."""

import os
import sys
import threading
import time
import types
import unittest
import warnings
from pathlib import Path
from unittest import mock

VENV = Path(sys.argv.pop(1)).absolute() if len(sys.argv) > 1 else None
if VENV and (VENV / "bin/python").exists() and Path(sys.prefix) != VENV:
    os.execv(VENV / "bin/python", [str(VENV / "bin/python"), __file__, str(VENV), *sys.argv[1:]])
try:
    import numpy as np
    import pymust
except ImportError as error:
    print(f"simus_script_test.py: Skipped\nno SIMUS simulator for the tests: {error}")
    sys.exit(77)

SCRIPT = Path(__file__).parents[2] / "src/resources/python/SimusForSimulatedChannelDataStream.py"
C = 1.54e6  # mm/s
FC = 2.5e6
FS = 1e7
CYCLES = 1.5


class Image:
    def __init__(self, array):
        self.samples = np.asarray(array)

    def array(self):
        return self.samples


class ImageSet(list):
    """As the module kelvaris has them: images as (slices, height, width, channels)."""

    def __init__(self, arrays, volumetric=False):
        assert volumetric and all(array.ndim == 3 and array.flags.c_contiguous for array in arrays)
        super().__init__(Image(array[..., np.newaxis]) for array in arrays)


class Points:
    def __init__(self, points, weights=None):
        self.points = np.array(points, dtype=float).reshape(-1, 3)
        self.weights = weights


class Canceled(RuntimeError):
    pass


def script():
    kelvaris = types.ModuleType("kelvaris")
    kelvaris.SharedImageSet = ImageSet
    kelvaris.Canceled = Canceled
    kelvaris.report_progress = lambda text, fraction=None: True
    sys.modules["kelvaris"] = kelvaris
    namespace = {}
    exec(compile(SCRIPT.read_text(), SCRIPT.name, "exec"), namespace)
    return namespace["simulate"]


simulate = script()


class Array:
    """Element positions (x, y) in mm, as the model of transducers has them."""

    def __init__(self, elements, pitch, radius=None):
        self.pitch, self.radius = pitch, radius
        arc = (np.arange(elements) - (elements - 1) / 2) * pitch
        if radius is None:
            self.positions = np.stack([arc, 0 * arc], axis=1)
        else:
            self.positions = radius * np.stack([np.sin(arc / radius), np.cos(arc / radius) - 1], axis=1)

    def distances(self, point):
        return np.hypot(*(self.positions - point[:2]).T)

    def param(self, fs=FS):
        """The toolbox's, in m and s, by the distance of two neighbours."""
        param = pymust.utils.Param()
        param.fc, param.fs, param.c, param.TXnow = FC, fs, C * 1e-3, CYCLES
        param.Nelements = len(self.positions)
        param.pitch = param.width = 1e-3 * np.hypot(*(self.positions[1] - self.positions[0]))
        param.radius = np.inf if self.radius is None else 1e-3 * self.radius
        return param

    def direct(self, points, delays, fs=FS):
        """One transmission, simulated by the toolbox itself; (samples, elements)."""
        x, y = 1e-3 * np.asarray(points, dtype=float).reshape(-1, 3)[:, :2].T
        z = y - 1e-3 * self.positions[0, 1]  # the outer elements lie at the toolbox's z = 0
        return pymust.simus(x, z, np.ones(x.size), np.array(delays)[np.newaxis], self.param(fs))[0]

    def bridge(self, points, delays, apertures=None, offsets=None, weights=None, fs=FS, **changes):
        """What the script makes of rows of delays; (events, samples, channels)."""
        delays = np.atleast_2d(np.array(delays, dtype=float))
        everything = np.array([[0, len(self.positions) - 1]] * len(delays), dtype=np.int32)
        values = dict(delays_image=ImageSet([delays[np.newaxis]], volumetric=True),
                      receive_aperture_indices=ImageSet([everything[np.newaxis] if apertures is None else
                                                         np.array([apertures], dtype=np.int32)], volumetric=True),
                      scatterers=Points(points, weights),
                      scatterer_offsets=Points(np.zeros((len(delays), 3)) if offsets is None else offsets),
                      speed_of_sound=C, sampling_frequency=fs, pulse_length=CYCLES, pulse_frequency=FC,
                      num_elements=len(self.positions), pitch=self.pitch,
                      radius=np.inf if self.radius is None else self.radius / 1000)
        result = simulate(*(values | changes).values())
        assert len(result) == 1 and result[0].array().shape[3] == 1
        return result[0].array()[..., 0]


LINEAR = Array(16, 0.3)
CONVEX = Array(17, 0.4, 20.0)
ARRAYS = {"linear": LINEAR, "convex": CONVEX}
TARGET = np.array([1.5, 12.0, 0.0])
OTHER = np.array([-3.0, 17.5, 0.0])


def waves(array):
    """Delays in s of one wave of each kind."""
    focused = array.distances(TARGET)
    diverging = array.distances(np.array([0.5, -8.0 - (array.radius or 0.0)]))
    steered = array.positions @ [np.sin(0.2), np.cos(0.2)]
    return {"focused": (focused.max() - focused) / C, "diverging": (diverging - diverging.min()) / C,
            "plane": (steered - steered.min()) / C}


class SimusScript(unittest.TestCase):
    def assertSamples(self, samples, expected, tolerance=1e-4):
        self.assertEqual(samples.shape, expected.shape)
        self.assertGreater(np.abs(expected).max(), 0)
        self.assertLess(np.abs(samples - expected).max(), tolerance * np.abs(expected).max())

    def test_equals_the_toolbox_for_every_array_and_wave(self):
        for name, array in ARRAYS.items():
            param = array.param()
            x, z, _, _ = param.getElementPositions()
            np.testing.assert_allclose(1e3 * x[0], array.positions[:, 0], atol=1e-9)
            np.testing.assert_allclose(1e3 * z[0] + array.positions[0, 1], array.positions[:, 1], atol=1e-9)
            for wave, delays in waves(array).items():
                with self.subTest(array=name, wave=wave):
                    points = [TARGET, OTHER]
                    self.assertSamples(array.bridge(points, delays)[0], array.direct(points, delays))

    def test_apertures(self):
        delays = waves(LINEAR)["focused"]
        delays[:3] = delays[12:] = -1.0
        direct = LINEAR.direct([TARGET], np.where(delays == -1.0, np.nan, delays))
        # A channel takes the elements whose numbers leave the same remainder.
        for first, last, elements in ((0, 15, range(16)), (0, 5, range(6)), (2, 7, (6, 7, 2, 3, 4, 5)), (15, 15, (15,))):
            with self.subTest(first=first, last=last):
                samples = LINEAR.bridge([TARGET], delays, apertures=[(first, last)])[0]
                self.assertSamples(samples, direct[:, list(elements)])
        # As many channels as the first event has.
        samples = LINEAR.bridge([TARGET], [delays] * 2, apertures=[(4, 7), (2, 9)])
        self.assertSamples(samples[1], direct[:, [4, 5, 2, 3]])

    def test_events_move_the_scatterers_and_pad_the_samples(self):
        delays = waves(CONVEX)["plane"]
        offsets = [(0.0, 0.0, 0.0), (0.5, -2.0, 3.0), (0.0, 0.0, 0.0)]
        samples = CONVEX.bridge([TARGET, OTHER], [delays] * 3, offsets=offsets)
        self.assertEqual(len(samples), 3)
        for event, offset in zip(samples, offsets):
            direct = CONVEX.direct([TARGET + offset, OTHER + offset], delays)
            self.assertSamples(event[:len(direct)], direct)
            self.assertFalse(event[len(direct):].any())

    def test_low_sampling_frequencies_take_samples_of_higher_ones(self):
        delays = waves(LINEAR)["diverging"]
        for factor, steps in ((4.0, 1), (3.9, 2), (2.0, 2), (1.9, 3), (0.7, 6)):
            with self.subTest(factor=factor):
                fs = factor * FC
                self.assertSamples(LINEAR.bridge([TARGET], delays, fs=fs)[0],
                                   LINEAR.direct([TARGET], delays, fs=steps * fs)[::steps])

    def test_negative_delays_keep_the_zero_of_time(self):
        delays = waves(CONVEX)["diverging"]
        delays[0] = -1.0
        later = CONVEX.bridge([TARGET], delays)[0]
        earlier = CONVEX.bridge([TARGET], np.where(delays == -1.0, -1.0, delays - 20 / FS))[0]
        self.assertSamples(earlier[:-20], later[20:], tolerance=0.02)

    def test_weights_are_reflectivities(self):
        delays = waves(LINEAR)["plane"]
        both = LINEAR.bridge([TARGET, OTHER], delays)[0]
        doubled = LINEAR.bridge([TARGET, OTHER], delays, weights=np.array([2.0, 2.0]))[0]
        self.assertSamples(doubled, 2 * both)

    def test_silence(self):
        delays = waves(CONVEX)["plane"]
        silent = np.full_like(delays, -1.0)
        behind = [(0.0, -5.0, 0.0), (1.0, -0.5, 0.0)]
        for name, points, rows in (("no scatterers", [], [delays]), ("behind the array", behind, [delays] * 2),
                                   ("nobody transmits", [TARGET], [silent])):
            with self.subTest(name), warnings.catch_warnings():
                warnings.simplefilter("error")
                samples = CONVEX.bridge(points, rows)
                self.assertEqual((samples.shape[0], samples.shape[2]), (len(rows), 17))
                self.assertTrue((samples == 0).all())
        # One silent event among others, one scatterer behind among others.
        samples = CONVEX.bridge([TARGET, behind[0]], [silent, delays])
        self.assertFalse(samples[0].any())
        self.assertSamples(samples[1], CONVEX.direct([TARGET, behind[0]], delays))

    def test_reports_where_it_was_called(self):
        reports, toolbox = [], pymust.simus
        rows = [waves(LINEAR)[wave] for wave in ("plane", "focused")]

        def report(text, fraction):
            reports.append((text, fraction, threading.get_ident()))
            return True

        def slow(*args):
            already = len(reports)
            while len(reports) < already + 2:
                time.sleep(0.001)
            return toolbox(*args)

        expected = [LINEAR.bridge([TARGET], row)[0] for row in rows]
        with mock.patch("kelvaris.report_progress", report), mock.patch("pymust.simus", slow):
            samples = LINEAR.bridge([TARGET], rows)
        for event, alone in zip(samples, expected):
            np.testing.assert_array_equal(event[:len(alone)], alone)
        self.assertEqual({thread for _, _, thread in reports}, {threading.get_ident()})
        self.assertTrue({("SIMUS simulates event 1 of 2", 0.0), ("SIMUS simulates event 2 of 2", 0.5)} <=
                        {report[:2] for report in reports})

    def test_is_given_up_at_once_and_leaves_nothing_running(self):
        def endless(*args):
            while True:
                time.sleep(0.001)

        before = threading.active_count()
        with mock.patch("kelvaris.report_progress", lambda *_: False), mock.patch("pymust.simus", endless):
            with self.assertRaisesRegex(Canceled, "SIMUS simulates event 1 of 1"):
                LINEAR.bridge([TARGET], waves(LINEAR)["plane"])
        self.assertEqual(threading.active_count(), before)

    def test_refuses_what_makes_no_simulation(self):
        delays = waves(LINEAR)["plane"]
        wide = Array(40, 0.9, 10.0)
        for message, call in (
                ("speed of sound is 0", lambda: LINEAR.bridge([TARGET], delays, speed_of_sound=0.0)),
                ("sampling frequency is nan", lambda: LINEAR.bridge([TARGET], delays, sampling_frequency=np.nan)),
                ("pulse length is -1", lambda: LINEAR.bridge([TARGET], delays, pulse_length=-1.0)),
                ("pulse frequency is inf", lambda: LINEAR.bridge([TARGET], delays, pulse_frequency=np.inf)),
                ("pitch is 0", lambda: LINEAR.bridge([TARGET], delays, pitch=0.0)),
                ("radius is 0.0 m", lambda: LINEAR.bridge([TARGET], delays, radius=0.0)),
                ("201.1 degrees", lambda: wide.bridge([TARGET], np.zeros(40))),
                ("16 elements, receive apertures of 1 events and offsets of 1, for 17",
                 lambda: LINEAR.bridge([TARGET], delays, num_elements=17)),
                ("offsets of 2", lambda: LINEAR.bridge([TARGET], delays, offsets=np.zeros((2, 3)))),
                ("not within the 16 elements", lambda: LINEAR.bridge([TARGET], delays, apertures=[(3, 16)])),
                ("not within the 16 elements", lambda: LINEAR.bridge([TARGET], delays, apertures=[(0, -1)])),
                ("last echo comes after 1.299 s", lambda: LINEAR.bridge([(0.0, 1e6, 0.0)], delays)),
                ("last echo comes after 0.5", lambda: LINEAR.bridge([TARGET], delays + 0.5)),
                ("not a number", lambda: LINEAR.bridge([(np.nan, 1.0, 0.0)], delays))):
            with self.subTest(message), self.assertRaisesRegex(ValueError, message):
                call()


if __name__ == "__main__":
    unittest.main()
