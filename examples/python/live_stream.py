"""A live picture of a simulated stream, with matplotlib: python3 live_stream.py [FRAMES [PICTURE]]

Every step works on a thread of its own, on the stream of the one before. With FRAMES, ends after so many; with PICTURE,
saves the last.
"""

import itertools
import pathlib
import sys

import kelvaris
import matplotlib.pyplot as plt


def step(stream, algorithm, **settings):
    """The stream of what the algorithm makes of each frame of `stream`; frames that it is too slow for are left out."""
    executor = kelvaris.create("SingleImageStreamAlgorithmExecutor", stream, queueSize=1)
    executor.configuration = {"algorithmName": f"USImgFormation.{algorithm}", "algorithmConfig": settings}
    return executor.compute()


frames = int(sys.argv[1]) if len(sys.argv) > 1 else None
sequence = kelvaris.read_properties(pathlib.Path(__file__).parent.parent / "sequences" / "plane-wave.xml")

kelvaris.load_plugins()
source = kelvaris.run(
    "CreateStreamIoSimulatedChannelData", start=False, useSIMUS=False, sequence=sequence, targetFrameRate=20,
    phantomType=1, phantomOrigin=[0, 10, 0], echoAmplitude=10, noiseAmplitude=20, transmitAmplitude=0,
)  # fmt: skip
lines = step(step(source, "IqDemodulation"), "Beamforming", outputValueScaling=0.1)
levels = step(lines, "LogCompression", dynamicRange=40, referenceAmplitude=3000)

figure, axes = plt.subplots()
picture = None
with levels.frames(capacity=1, timeout=60) as live:
    source.start()
    for frame in itertools.islice(live, frames):
        pixels = frame.images[0].array()[0, :, :, 0]
        if picture is None:
            picture = axes.imshow(pixels, cmap="gray", vmin=0, vmax=255, aspect="auto")
        picture.set_data(pixels)
        axes.set_title(f"{frame.timestamp_device} ms")
        plt.pause(0.001)
source.close()
if len(sys.argv) > 2:
    figure.savefig(sys.argv[2])
