"""From a recording to a picture in mm: python3 picture.py [RECORDING-FOLDER] [PICTURE]"""

import pathlib
import sys

import kelvaris

here = pathlib.Path(__file__).parent
folder = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else here.parent / "recordings" / "rotating_disk")
picture = sys.argv[2] if len(sys.argv) > 2 else "disk.png"

kelvaris.load_plugins()
rf = kelvaris.read_samples(folder / "PWI_disk.mat", "RF")  # samples x elements x transmissions
acquisition = kelvaris.read_properties(folder / "acquisition.xml")

recording = kelvaris.SharedImageSet(volumetric=True)
for frame in rf.astype("float32").transpose(2, 0, 1)[:1]:
    recording.append(frame, components={"FrameAcquisition": acquisition})

iq = kelvaris.run("IqDemodulation", recording, samplingFrequency=6.6666667e6, demodulationFrequency=-1.6666667e6)
lines = kelvaris.run("Beamforming", iq, fNumber=1, outputSize=(250, 350))
levels = kelvaris.run("LogCompression", lines, dynamicRange=30, referenceAmplitude=30000)
kelvaris.save_picture(picture, levels)
print("Wrote", picture, levels[0].shape)
