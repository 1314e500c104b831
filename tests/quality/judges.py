"""Foreign meters for finished files: ffmpeg's ebur128 filter and libebur128, over what ffmpeg decodes."""
import ctypes
import ctypes.util
import re
import subprocess

import numpy as np

LIBEBUR128_MODE = 1 | 4 | (1 << 3) | (1 << 4) | (1 << 5)  # momentary, integrated, sample and true peak


def run(words):
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if done.returncode != 0:
        raise RuntimeError('%s: %s' % (' '.join(words), done.stderr.decode(errors='replace').strip()))
    return done.stdout


def decoded(path, channels):
    """What ffmpeg makes of a file: frames by channels, full scale 1.0."""
    raw = run(['ffmpeg', '-v', 'error', '-i', path, '-map', '0:a:0', '-f', 'f32le', '-'])
    return np.frombuffer(raw, '<f4').reshape(-1, channels)


def decoded_by_opusdec(path, channels):
    raw = run(['opusdec', '--quiet', '--float', '--rate', '48000', '--no-dither', path, '-'])
    at = raw.index(b'data') + 8 if raw[:4] == b'RIFF' else 0
    raw = raw[at:len(raw) - (len(raw) - at) % (4 * channels)]
    return np.frombuffer(raw, '<f4', offset=at).reshape(-1, channels)


def db(value):
    return 20 * np.log10(max(float(value), 1e-10))


def by_ffmpeg(path):
    """Integrated loudness in LUFS and true peak in dBTP."""
    text = run(['ffmpeg', '-v', 'error', '-i', path, '-map', '0:a:0', '-af',
                'ebur128=peak=true:metadata=1,ametadata=print:file=-', '-f', 'null', '-']).decode()
    level = float(re.findall(r'lavfi\.r128\.I=(\S+)', text)[-1])
    peak = max(float(p) for p in re.findall(r'lavfi\.r128\.true_peaks_ch\d=(\S+)', text))
    return level, db(peak)


class Ebur128:
    """libebur128 through its C interface."""

    def __init__(self):
        self.lib = ctypes.CDLL(ctypes.util.find_library('ebur128') or 'libebur128.so.1')
        self.lib.ebur128_init.restype = ctypes.c_void_p
        self.lib.ebur128_init.argtypes = [ctypes.c_uint, ctypes.c_ulong, ctypes.c_int]

    def measure(self, x, rate):
        """Integrated loudness in LUFS and true peak in dBTP of frames by channels."""
        channels = x.shape[1]
        state = ctypes.c_void_p(self.lib.ebur128_init(channels, rate, LIBEBUR128_MODE))
        x = np.ascontiguousarray(x, np.float32)
        self.lib.ebur128_add_frames_float(state, x.ctypes.data_as(ctypes.c_void_p),
                                          ctypes.c_size_t(len(x)))
        out, peak = ctypes.c_double(), 0.0
        self.lib.ebur128_loudness_global(state, ctypes.byref(out))
        level = out.value
        for channel in range(channels):
            self.lib.ebur128_true_peak(state, ctypes.c_uint(channel), ctypes.byref(out))
            peak = max(peak, out.value)
        self.lib.ebur128_destroy(ctypes.byref(state))
        return level, db(peak)
