"""Streams: commands, frames, slow consumers, ends."""

import _thread
import gc
import os
import subprocess
import sys
import threading
import unittest

import kelvaris

for plugin in os.environ["PLUGINS"].split(":"):
    kelvaris.load_plugin(plugin)


def counting(**settings):
    return kelvaris.run("Counting", **settings)


def number(frame):
    return int(frame.images[0].array().flat[0])


class StreamTest(unittest.TestCase):
    def test_states_and_commands(self):
        stream = counting(open=False)
        self.assertIsInstance(stream, kelvaris.ImageStream)
        self.assertEqual((stream.state, stream.name, stream.kind), ("closed", "counting", "image stream"))
        with self.assertRaisesRegex(RuntimeError, '"counting" can\'t start while it is closed: .+'):
            stream.start()
        for command, state in [("open", "open"), ("start", "running"), ("stop", "open"), ("close", "closed")]:
            getattr(stream, command)()
            self.assertEqual(stream.state, state)
        stream.open()
        stream.start()
        self.assertFalse(stream.supports_pausing)
        with self.assertRaises(RuntimeError):
            stream.pause()

    def test_settings(self):
        stream = counting(open=False, last=7)
        self.assertEqual(stream.configuration["last"], 7)
        stream.configuration = {"last": 5}
        self.assertEqual(stream.configuration["last"], 5)
        with self.assertRaisesRegex(ValueError, "last is -1, expected 0 or more"):
            stream.configuration = {"last": -1}
        self.assertEqual(stream.configuration["last"], 5)

    def test_frames_in_order(self):
        with counting().frames(timeout=10) as frames:
            numbers = [(number(frame), frame.timestamp_device) for frame, _ in zip(frames, range(50))]
        self.assertEqual(numbers, sorted(set(numbers)))
        self.assertTrue(all(n == t for n, t in numbers))
        with self.assertRaises(StopIteration):
            next(frames)

    def test_slow_consumers_lose_the_oldest(self):
        stream = counting(open=True, start=False, last=20)
        frames, all_frames = stream.frames(2, timeout=10), stream.frames(100, timeout=10)
        stream.start()
        seen = [number(next(all_frames)) for _ in range(21)]  # the others have been queued by then, too
        stream.stop()
        self.assertEqual(seen, list(range(21)))
        self.assertEqual([number(frame) for frame in frames], [19, 20])
        self.assertEqual((frames.dropped, all_frames.dropped), (19, 0))

    def test_ends(self):
        stream = counting(open=True, start=False, last=3, ends=True)
        frames = stream.frames(timeout=10)
        stream.start()
        self.assertEqual([number(frame) for frame in frames], [0, 1, 2, 3])
        self.assertEqual(stream.state, "open")
        waiting = counting(last=0).frames(timeout=0.01)
        with self.assertRaisesRegex(TimeoutError, "0.01 s"):
            while True:
                next(waiting)
        for values in [{"capacity": 0}, {"timeout": -1}, {"timeout": float("nan")}]:
            with self.assertRaises(ValueError):
                stream.frames(**values)

    def test_close_from_another_thread_and_interrupt(self):
        frames = counting(last=0).frames()
        timer = threading.Timer(0.05, frames.close)
        timer.start()
        self.assertLessEqual(len(list(frames)), 1)
        timer.join()
        frames = counting(last=0).frames()
        timer = threading.Timer(0.05, _thread.interrupt_main)
        timer.start()
        with self.assertRaises(KeyboardInterrupt):
            list(frames)
        timer.join()

    def test_many_come_and_go(self):
        stream = counting()
        for _ in range(20):
            frames = stream.frames()
            next(frames)
            del frames
            other = counting()
            next(iter(other))
            del other
        gc.collect()

    def test_frames_outlive_their_stream(self):
        stream = counting()
        frame = next(iter(stream))
        view = frame.images[0].array()
        value = number(frame)
        stream.close()
        del stream, frame
        gc.collect()
        self.assertEqual(view.flat[0], value)

    def test_python_ends_while_streams_run(self):
        script = """
import kelvaris, os, sys, threading
sys.path.insert(0, os.environ["TESTS"])
from test_streams import counting
class Cycle: pass
leaked = Cycle(); leaked.self = leaked; leaked.stream = counting()
sys.leaked = counting()
running = counting()
threading.Thread(target=lambda: list(running), daemon=True).start()
next(iter(running))
"""
        environment = dict(os.environ, TESTS=os.path.dirname(__file__), PYTHONPATH=os.environ["LIBRARIES"])
        for _ in range(3):
            done = subprocess.run([sys.executable, "-c", script], env=environment, capture_output=True, timeout=60)
            self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_consumers_on_threads(self):
        stream = counting(open=True, start=False, last=300)
        counts = []

        def consume(frames):
            counts.append([number(frame) for frame in frames])

        threads = [threading.Thread(target=consume, args=(stream.frames(1000),)) for _ in range(4)]
        last = stream.frames(1000, timeout=10)
        for thread in threads:
            thread.start()
        stream.start()
        while number(next(last)) < 300:
            pass
        stream.stop()
        for thread in threads:
            thread.join()
        self.assertEqual(counts, [list(range(301))] * 4)


if __name__ == "__main__":
    unittest.main()
