"""MP4 files in a player that honours the whole edit list: Chromium, which need not be installed."""
import base64
import json
import os
import shutil
import signal
import subprocess
from http.server import BaseHTTPRequestHandler, HTTPServer
from pathlib import Path

import numpy
import pytest
from audio_files import lag, write_noise
from waiting import PATIENCE

CHROMIUM = shutil.which("chromium")
PAGE = """<script>(async () => {
    const decoded = [];
    for (const [rate, data] of FILES) {
        const bytes = Uint8Array.from(atob(data), letter => letter.charCodeAt()).buffer;
        const audio = await new OfflineAudioContext(1, 1, rate).decodeAudioData(bytes).catch(() => null);
        decoded.push(audio && Array.from(audio.getChannelData(0)));
    }
    await fetch('http://127.0.0.1:PORT', {method: 'POST', mode: 'no-cors', body: JSON.stringify(decoded)});
})()</script>"""


class Answer(BaseHTTPRequestHandler):
    """Receives the only request of the page, after which the browser is killed."""
    def do_POST(self):
        self.server.decoded = json.loads(self.rfile.read(int(self.headers["Content-Length"])))


def decode_in_browser(files):
    """First channels of files, given with their rates, decoded by the browser's Web Audio; None for a bad file."""
    with HTTPServer(("127.0.0.1", 0), Answer) as server:
        server.timeout = PATIENCE
        texts = json.dumps([(rate, base64.b64encode(data).decode()) for rate, data in files])
        Path("page.html").write_text(PAGE.replace("PORT", str(server.server_port)).replace("FILES", texts))
        browser = subprocess.Popen([CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                                    f"--user-data-dir={Path('profile').absolute()}", "page.html"],
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        server.handle_request()
        os.killpg(browser.pid, signal.SIGKILL)
        browser.wait()
        return server.decoded


@pytest.mark.skipif(not CHROMIUM, reason="needs chromium")
def test_mp4_gives_back_exactly_the_samples_of_the_source(tavik):
    cases = [(44100, samples, output) for samples in (1, 1024, 1025, 100000) for output in ("x.m4a", "-")]
    cases += [(44100, 1023, "x.m4a"), (48000, 50001, "-"), (22050, 20000, "x.m4a"), (8000, 12345, "-")]
    sources, files = [], []
    for rate, samples, output in cases:
        sources.append(write_noise("in.wav", samples, rate))
        run = tavik.encode("in.wav", "-q", "-f", "-o", output)
        files.append((rate, run.data or Path(output).read_bytes()))
    for case, source, decoded in zip(cases, sources, decode_in_browser(files)):
        assert decoded is not None and len(decoded) == len(source), case
        assert len(source) == 1 or lag(numpy.array([decoded]).T, source) == 0, case
