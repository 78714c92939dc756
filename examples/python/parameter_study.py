"""How the F-number and the window change the contrast of the rotating disk: python3 parameter_study.py

The disk's scatterers fill a circle of 1 cm radius around (0, 22.5) mm; beside it there is water. The contrast is the
mean power inside over that outside, in dB, of one plane wave.
"""

import pathlib

import kelvaris
import numpy as np

folder = pathlib.Path(__file__).parent.parent / "recordings" / "rotating_disk"
kelvaris.load_plugins()

rf = kelvaris.read_samples(folder / "PWI_disk.mat", "RF")[:, :, 0].astype("float32")
recording = kelvaris.SharedImageSet(volumetric=True)
recording.append(rf, components={"FrameAcquisition": kelvaris.read_properties(folder / "acquisition.xml")})
iq = kelvaris.run("IqDemodulation", recording, samplingFrequency=6.6666667e6, demodulationFrequency=-1.6666667e6)

# Pixel centres of the region in acquisition.xml: x from -12.5 to 12.5 mm, depth from 10 to 35 mm.
n = 250
x = -12.5 + (np.arange(n) + 0.5) * 25 / n
z = 10 + (np.arange(n)[:, None] + 0.5) * 25 / n
radius = np.hypot(x, z - 22.5)

beamforming = kelvaris.create("Beamforming", iq, outputSize=(n, n))
print("window        fNumber  contrast (dB)")
for window in ("Unweighted Das", "Hamming Das", "Tukey Das"):
    for f_number in (0.5, 1, 1.5, 2, 3):
        beamforming.set(beamformerType=window, fNumber=f_number)
        image = beamforming.compute()[0]
        power = np.where(image.valid()[0], (image.array()[0].astype(float) ** 2).sum(axis=-1), np.nan)
        contrast = 10 * np.log10(np.nanmean(power[radius < 9]) / np.nanmean(power[radius > 11]))
        print(f"{window:14}{f_number:7}{contrast:15.1f}")
