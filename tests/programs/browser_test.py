"""What a player that honours the whole edit list makes of MP4 files: Chromium, which is not there everywhere."""
import http.server
import json
import os
import shutil
import signal
import subprocess
import tempfile
import threading

import numpy
import pytest
from audio_files import decode, lag
from conftest import NOISE
from waiting import PATIENCE

CHROMIUM = shutil.which("chromium")
OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-sync",
           "--disable-background-networking", "--disable-component-update", "--disable-dev-shm-usage"]
PAGE = """<script>(async () => {
    for (const [name, rate] of FILES) {
        const data = await (await fetch(name)).arrayBuffer();
        const audio = await new OfflineAudioContext(1, 1, rate).decodeAudioData(data).catch(() => null);
        await fetch(name, {method: 'POST', body: audio ? audio.getChannelData(0) : ''});
    }
    await fetch('end', {method: 'POST', body: ''});
})()</script>"""


def decode_in_browser(files):
    """First channels of the files, given with their rates, as the browser's Web Audio decodes them."""
    samples = {}
    ended = threading.Event()

    class Handler(http.server.SimpleHTTPRequestHandler):
        def do_GET(self):
            if self.path != "/":
                return super().do_GET()
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.end_headers()
            return self.wfile.write(PAGE.replace("FILES", json.dumps(files)).encode())

        def do_POST(self):
            samples[self.path[1:]] = self.rfile.read(int(self.headers["Content-Length"]))
            self.send_response(204)
            self.end_headers()
            if self.path == "/end":
                ended.set()

        def log_message(self, *_):
            pass

    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler) as server, \
            tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        browser = subprocess.Popen([CHROMIUM, *OPTIONS, f"--user-data-dir={profile}",
                                    f"http://127.0.0.1:{server.server_port}/"],
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            assert ended.wait(PATIENCE), "the browser gives no answer"
        finally:
            os.killpg(browser.pid, signal.SIGKILL)
            browser.wait()
            server.shutdown()
    return {name: numpy.frombuffer(samples[name], "<f4") for name, _ in files}


@pytest.mark.skipif(not CHROMIUM, reason="needs chromium")
def test_mp4_gives_back_exactly_the_samples_of_the_source(tavik, sound):
    files = []
    sources = {}
    for rate, samples in ((44100, 1), (44100, 1023), (44100, 1024), (44100, 1025), (44100, 100000), (48000, 50001),
                          (22050, 20000), (8000, 12345)):
        for piped in (False, True):
            name = f"{rate}-{samples}{'-piped' * piped}.m4a"
            source = sound("noise.wav", NOISE, rate, samples, filters="lowpass=2000")
            run = tavik.encode(source, "-q", "-o", "-" if piped else name)
            if piped:
                with open(name, "wb") as file:
                    file.write(run.data)
            files.append((name, rate))
            sources[name] = decode(source)[1]
    for name, decoded in decode_in_browser(files).items():
        assert len(decoded) == len(sources[name]), name
        if len(decoded) > 1:
            assert lag(decoded.reshape(-1, 1), sources[name]) == 0, name
