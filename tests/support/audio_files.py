"""Audio files to encode, and views of others that do not depend on what wrote them: through ffmpeg and faad."""
import subprocess
import wave

import numpy
from waiting import PATIENCE


def ffmpeg(*arguments, data=None):
    """What ffmpeg writes to its standard output; it must have nothing to complain about."""
    command = ["ffmpeg", "-v", "error", "-y", *map(str, arguments)]
    run = subprocess.run(command, input=data or b"", capture_output=True, timeout=PATIENCE, check=True)
    assert not run.stderr, run.stderr
    return run.stdout


def probe(path, entries):
    """Lines key=value of ffprobe."""
    command = ["ffprobe", "-v", "error", "-show_entries", entries, "-of", "default=noprint_wrappers=1", path]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()


def decode(path, decoder="ffmpeg", *options):
    """Sampling rate and samples (one column per channel) as the decoder understands the file."""
    if decoder == "faad":
        subprocess.run(["faad", "-q", "-o", "decoded.wav", path], capture_output=True, check=True)
    else:
        demuxer = ["-f", "aac"] if str(path).endswith((".aac", ".adts")) else []  # short ones are not recognised
        ffmpeg(*demuxer, "-i", path, "-map", "0:a", "-c:a", "pcm_s16le", *options, "decoded.wav")
    with wave.open("decoded.wav") as file:
        samples = numpy.frombuffer(file.readframes(file.getnframes()), "<i2").reshape(-1, file.getnchannels())
        return file.getframerate(), samples / 32768


def write_noise(path, samples, rate=44100, channels=2):
    """Independent channels that are the louder the lower, so that coding keeps them and correlation finds them."""
    noise = numpy.cumsum(numpy.random.default_rng(1).standard_normal((samples + 199, channels)), axis=0)
    noise = numpy.array([numpy.convolve(column, numpy.eye(1, 200)[0] - 1 / 200, "valid") for column in noise.T]).T
    noise = numpy.round(noise / numpy.abs(noise).max() * 20000).astype("<i2")
    with wave.open(str(path), "wb") as file:
        file.setparams((channels, 2, rate, 0, "NONE", ""))
        file.writeframes(noise.tobytes())
    return noise / 32768


def levels(samples):
    """RMS of every channel in dB, silence as -99."""
    return [round(max(-99, 10 * numpy.log10(numpy.mean(channel**2) + 1e-20))) for channel in samples.T]


def lag(decoded, source):
    """By how many samples the first channel of `decoded` comes later than that of `source`, by cross-correlation."""
    size = 2 * max(len(decoded), len(source))
    spectrum = numpy.fft.rfft(decoded[:, 0], size) * numpy.conj(numpy.fft.rfft(source[:, 0], size))
    peak = int(numpy.argmax(numpy.fft.irfft(spectrum, size)))
    return peak - size if peak > size // 2 else peak


def atom(data, path):
    """Contents of the atom of an MP4 file at the path."""
    for kind in path.split("/"):
        while data[4:8] != kind.encode():
            assert data, f"no {kind}"
            data = data[int.from_bytes(data[:4], "big"):]
        data = data[8:int.from_bytes(data[:4], "big")]
    return data
