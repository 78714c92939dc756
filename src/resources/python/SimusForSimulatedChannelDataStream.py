"""Channel data of point scatterers by the SIMUS simulator of the toolbox pymust (D. Garcia, "SIMUS: an open-source
simulator for medical ultrasound imaging", Comput Meth Prog Biomed 2022).

Two coordinate systems meet here. The model's is in mm: x along the array, y into the medium, origin at the array's
centre. The toolbox's is in m: x along the array, z into the medium, and on a curved array z = 0 at the chord through the
outer elements, so that the array's centre lies deeper than that by the sagitta.

The simulation is two-dimensional: elevation is left out. Elements are as wide as the pitch. What the model doesn't say
has the toolbox's defaults: a bandwidth of 75 %, soft baffle, no attenuation. The centre of a pulse that is sent at time 0
comes back at the time that it travels.
"""

import contextvars
import ctypes
import threading

import kelvaris
import numpy as np
import pymust

_LONGEST_ECHO = 0.01  # s; memory and time of a simulation grow with it
_REPORT_INTERVAL = 0.03  # s


def _pixels(image_set):
    """The first slice and channel of the first image, as an array (height, width)."""
    return np.asarray(image_set[0].array())[0, :, :, 0]


def _image_set(samples):
    """A set of one image from an array (slices, height, width)."""
    return kelvaris.SharedImageSet([samples], volumetric=True)


def _array(num_elements, pitch, radius, speed_of_sound, pulse_frequency, pulse_length):
    """The toolbox's parameters, from mm, mm/s, Hz and cycles; the radius in m. And the depth in m of the array's centre."""
    param = pymust.utils.Param()
    param.Nelements = num_elements
    param.fc = pulse_frequency
    param.TXnow = pulse_length
    param.c = speed_of_sound / 1000
    param.radius = radius
    param.pitch = pitch / 1000
    sagitta = 0.0
    if np.isfinite(radius):
        step = param.pitch / radius
        half_angle = (num_elements - 1) * step / 2
        if half_angle >= np.pi / 2:
            raise ValueError(f"The array spans {np.degrees(2 * half_angle):.4g} degrees of a circle, SIMUS takes less than 180")
        # The model measures the pitch along the arc, the toolbox along the chord.
        param.pitch = 2 * radius * np.sin(step / 2)
        sagitta = radius * (1 - np.cos(half_angle))
    param.width = param.pitch
    return param, sagitta


def _transmission(x, z, reflectivity, delays, param, steps):
    """Radio-frequency data (samples, elements) of one transmission, every `steps`-th sample of the toolbox's.

    x, z in m; delays in s, NaN for elements that don't transmit."""
    if x.size == 0 or np.isnan(delays).all():
        return np.zeros((1, delays.size), np.float32)
    # The toolbox takes no negative delays. Later by `shift` on transmission, earlier by as much on reception.
    shift = max(0.0, -np.nanmin(delays))
    if shift > 0:
        param.RXdelay = np.full((1, delays.size), -shift)
    echo = 2 * (np.hypot(x, z).max() + param.Nelements * param.pitch / 2) / param.c + np.nanmax(delays + shift)
    if echo > _LONGEST_ECHO:
        raise ValueError(f"The last echo comes after {echo:.4g} s, which takes too long to simulate; expected at most "
                         f"{_LONGEST_ECHO} s. Are the scatterers and the delays where they should be?")
    # The toolbox divides by the largest sample, which is 0 where nothing comes back.
    with np.errstate(invalid="ignore"):
        samples = pymust.simus(x, z, reflectivity, (delays + shift)[np.newaxis], param)[0]
    return np.nan_to_num(samples[::steps], nan=0.0)


def _end(thread, outcome):
    """Ends a thread amid what it does, with the next step of the interpreter, and waits for that. The thread itself is
    left alone when its work has an outcome."""
    while thread.is_alive():
        if not outcome:
            ctypes.pythonapi.PyThreadState_SetAsyncExc(ctypes.c_ulong(thread.ident), ctypes.py_object(SystemExit))
        thread.join(_REPORT_INTERVAL)
        kelvaris.report_progress("Giving up")


def _attended(work, progress):
    """Calls work() on a thread of its own; meanwhile this one, which may be that of a window, reports progress(), a text
    and the fraction that is done. Raises what work() raises, and kelvaris.Canceled if it is to be given up; the work has
    ended then, too."""
    outcome = []  # of the work: what it raised, or None

    def run():
        try:
            work()
            outcome.append(None)
        except BaseException as error:
            outcome.append(error)

    # The context has the caller's settings of numpy's errors.
    thread = threading.Thread(target=contextvars.copy_context().run, args=(run,), daemon=True)
    thread.start()
    try:
        while thread.is_alive():
            thread.join(_REPORT_INTERVAL)
            text, fraction = progress()
            if not kelvaris.report_progress(text, fraction):
                raise kelvaris.Canceled(f"Given up while {text}")
    except BaseException:
        _end(thread, outcome)
        raise
    if outcome[0] is not None:
        raise outcome[0]


def simulate(delays_image, receive_aperture_indices, scatterers, scatterer_offsets, speed_of_sound, sampling_frequency,
             pulse_length, pulse_frequency, num_elements, pitch, radius):
    """Simulates one transmission for each event.

    delays_image: image (events, elements), transmit delays in s, -1 for elements that don't transmit.
    receive_aperture_indices: image (events, 2), first and last receiving element.
    scatterers: points in mm, with their reflectivity as weights (1 without any).
    scatterer_offsets: a point for each event, in mm, by which the scatterers are displaced.
    speed_of_sound in mm/s, sampling_frequency and pulse_frequency in Hz, pulse_length in cycles, pitch in mm (along the
    arc), radius in m (infinity for a flat array).

    Returns a set of one image (events, samples, channels). An element's channel is its number modulo the number of
    channels, which is the size of the first event's aperture. Sample 0 is at time 0; the last one is late enough for all
    echoes. Raises ValueError for values that make no simulation."""
    for name, value in (("speed of sound", speed_of_sound), ("sampling frequency", sampling_frequency),
                        ("pulse length", pulse_length), ("pulse frequency", pulse_frequency), ("pitch", pitch)):
        if not (np.isfinite(value) and value > 0):
            raise ValueError(f"The {name} is {value}, expected a positive number")
    if not radius > 0:
        raise ValueError(f"The radius is {radius} m, expected a positive number or infinity")
    delays = np.array(_pixels(delays_image), dtype=float)
    delays[delays == -1] = np.nan
    apertures = _pixels(receive_aperture_indices)
    points = np.asarray(scatterers.points, dtype=float)
    offsets = np.asarray(scatterer_offsets.points, dtype=float)
    reflectivity = np.ones(len(points)) if scatterers.weights is None else np.asarray(scatterers.weights, dtype=float)
    if delays.shape[1] != num_elements or not len(delays) == len(apertures) == len(offsets):
        raise ValueError(f"There are delays of {delays.shape[0]} events and {delays.shape[1]} elements, receive apertures "
                         f"of {len(apertures)} events and offsets of {len(offsets)}, for {num_elements} elements")
    if apertures.min() < 0 or apertures.max() >= num_elements or (apertures[:, 0] > apertures[:, 1]).any():
        raise ValueError(f"A receive aperture is not within the {num_elements} elements")
    if not (np.isfinite(points).all() and np.isfinite(offsets).all()):
        raise ValueError("The position of a scatterer is not a number")

    # The toolbox samples at least four times per period.
    steps = int(np.ceil(4 * pulse_frequency / sampling_frequency))

    num_channels = apertures[0, 1] - apertures[0, 0] + 1
    events = []

    def simulate_events():
        transmissions = {}  # events that repeat one another are simulated once
        for event_delays, (first, last), offset in zip(delays, apertures, offsets):
            key = event_delays.tobytes() + offset.tobytes()
            if key not in transmissions:
                param, sagitta = _array(num_elements, pitch, radius, speed_of_sound, pulse_frequency, pulse_length)
                param.fs = steps * sampling_frequency
                moved = (points + offset) / 1000
                transmissions[key] = _transmission(moved[:, 0], moved[:, 1] + sagitta, reflectivity, event_delays, param,
                                                   steps)
            elements = np.arange(first, min(last + 1, first + num_channels))
            samples = np.zeros((len(transmissions[key]), num_channels), np.float32)
            samples[:, elements % num_channels] = transmissions[key][:, elements]
            events.append(samples)

    def progress():
        done = len(events)
        # How far one event is, the toolbox doesn't tell.
        return (f"SIMUS simulates event {min(done + 1, len(delays))} of {len(delays)}",
                done / len(delays) if len(delays) > 1 else None)

    _attended(simulate_events, progress)
    result = np.zeros((len(events), max(map(len, events)), num_channels), np.float32)
    for event, samples in zip(result, events):
        event[:len(samples)] = samples
    return _image_set(result)
