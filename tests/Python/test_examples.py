"""The examples run as their users run them."""

import importlib.util
import itertools
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import kelvaris
import numpy as np

EXAMPLES = pathlib.Path(os.environ["EXAMPLES"])
RECORDING = EXAMPLES / "recordings" / "rotating_disk"


def run(folder, *command, **variables):
    environment = dict(os.environ, PYTHONPATH=os.environ["LIBRARIES"], **variables)
    return subprocess.run(command, cwd=folder, env=environment, capture_output=True, text=True, timeout=100)


class ExampleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        kelvaris.load_plugins()

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    @unittest.skipUnless(importlib.util.find_spec("matplotlib"), "Python module: matplotlib (Debian: python3-matplotlib)")
    def test_the_live_picture(self):
        algorithms = {a.id for a in kelvaris.algorithms()}
        self.assertIn("USImgFormation.CreateStreamIoSimulatedChannelData", algorithms)
        self.example("live_stream.py", "3", "live.png", MPLBACKEND="Agg")
        self.assertTrue((self.folder / "live.png").read_bytes().startswith(b"\x89PNG"))

    def test_a_chain_on_a_live_stream(self):
        """The simulated point is seen where it is, and where it is put while the stream runs."""
        sequence = kelvaris.read_properties(EXAMPLES / "sequences" / "plane-wave.xml")
        source = kelvaris.run(
            "CreateStreamIoSimulatedChannelData", open=False, useSIMUS=False, sequence=sequence, targetFrameRate=20,
            transmitAmplitude=0, noiseAmplitude=0, phantomOrigin=[0, 20, 0], pixelType=5126,
        )  # fmt: skip
        try:
            source.open()
        except RuntimeError as error:
            self.skipTest(str(error))
        lines = kelvaris.run("Beamforming", kelvaris.run("IqDemodulation", source))

        def brightest(frame):
            samples = frame.images[0].array()[0].astype(float)
            energy = np.nan_to_num((samples**2).sum(axis=-1))
            return np.unravel_index(energy.argmax(), energy.shape)

        def assert_point(frame, depth):
            row, column = brightest(frame)
            rows, columns = frame.images[0].shape[1:3]
            self.assertAlmostEqual(column, columns / 2, delta=3)
            self.assertAlmostEqual((row + 0.5) / rows * 40, depth + 0.26, delta=0.3)  # an echo begins at the point

        with lines.frames(1, timeout=60) as frames:
            source.start()
            first = next(frames)
            assert_point(first, 20)
            self.assertIn("FrameGeometryMetadata", first.images.components(0))
            source.configuration = {"phantomOrigin": [0, 30, 0]}
            for last in itertools.islice(frames, 3):  # at most one is queued and one on its way
                self.assertLess(first.timestamp_device, last.timestamp_device)
            assert_point(last, 30)

    def example(self, name, *arguments, **variables):
        done = run(self.folder, sys.executable, EXAMPLES / "python" / name, *arguments, **variables)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def test_the_picture_is_that_of_the_command_line(self):
        self.example("picture.py", RECORDING, "python.png")
        program = os.environ["PROGRAM"]
        for command in [
            f"import {RECORDING}/PWI_disk.mat --dataset RF --layout fastTime,channels,frames"
            f" --acquisition {RECORDING}/acquisition.xml --output disk.kvx",
            f"run disk.kvx --chain {RECORDING}/chain.xml --images 0:1 --output program.png",
        ]:
            done = run(self.folder, program, *command.split())
            self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual((self.folder / "python.png").read_bytes(), (self.folder / "program.png").read_bytes())

    def test_an_import_is_what_python_makes_of_it(self):
        script = (EXAMPLES / "python" / "picture.py").read_text().split("iq =")[0]
        script += "kelvaris.save('python.kvx', recording)"
        (self.folder / "script.py").write_text(script.replace("pathlib.Path(__file__).parent", f"pathlib.Path('{EXAMPLES}/python')"))
        done = run(self.folder, sys.executable, "script.py")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        images = kelvaris.load(self.folder / "python.kvx")
        acquisition = kelvaris.read_properties(RECORDING / "acquisition.xml")
        stored = images.components(0)["FrameAcquisition"]
        for key in ("transducer", "events", "beamformingRois", "metadata"):
            self.assertEqual(stored[key], acquisition[key], key)
        with self.assertRaisesRegex(ValueError, "No FrameAcquisition can be made of this"):
            images.set_component("FrameAcquisition", {"transducer": {"type": "linear"}}, image=0)
        self.assertEqual(images.components(0)["FrameAcquisition"], stored)

    def test_the_parameter_study(self):
        rows = [line.split() for line in self.example("parameter_study.py").splitlines()[1:]]
        self.assertEqual(len(rows), 15)
        contrast = {(row[0], row[-2]): float(row[-1]) for row in rows}
        self.assertTrue(all(5 < value < 60 for value in contrast.values()), contrast)
        self.assertGreater(len(set(contrast.values())), 10)


if __name__ == "__main__":
    unittest.main()
