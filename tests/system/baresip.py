"""baresip as the far end of a test: plays a tone into its call, and its own recording tells what it heard."""
import re
import shutil
import subprocess
from pathlib import Path

from harness import check, free_port


class Baresip:
    """A baresip that answers every call by itself, with a tone of so many Hz as its microphone."""

    def __init__(self, folder, hertz, port=None):
        self.program = shutil.which("baresip")
        modules = next(Path("/usr/lib").glob("**/baresip/modules"), None)
        check(self.program is not None and modules is not None, "baresip is not installed")
        self.folder = folder
        folder.mkdir()
        tone = folder / "tone.wav"
        subprocess.run(["sox", "-n", "-r", "8000", "-c", "1", "-b", "16", str(tone), "synth", "30", "sine", str(hertz),
                        "gain", "-6"], check=True)
        self.port = port or free_port()
        rtp_port = free_port()
        (folder / "config").write_text(
            f"sip_listen 127.0.0.1:{self.port}\nnet_interface 127.0.0.1\nmodule_path {modules}\nmodule_tmp account.so\n"
            "module_app menu.so\nmodule g711.so\nmodule aufile.so\nmodule sndfile.so\n"
            f"audio_source aufile,{tone}\naudio_player aufile,{folder / 'heard.wav'}\naudio_alert aufile,{folder / 'x.wav'}\n"
            f"snd_path {folder}\nrtp_ports {rtp_port}-{rtp_port + 1}\n", encoding="utf-8")
        (folder / "accounts").write_text(
            "<sip:tester@127.0.0.1>;regint=0;audio_codecs=PCMU;catchall=yes;answermode=auto\n", encoding="utf-8")
        (folder / "contacts").write_text("", encoding="utf-8")

    def start(self, seconds, *commands):
        """Starts it for so many seconds; the commands are baresip's own ("/dial sip:...")."""
        arguments = [word for command in commands for word in ("-e", command)]
        return subprocess.Popen([self.program, "-f", str(self.folder), "-t", str(seconds), *arguments], cwd=self.folder,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def check_heard(self, process, hertz):
        """After its end: it was in a call, and heard that tone, clearly."""
        text = process.communicate(timeout=60)[0]
        check("Call established" in text, f"baresip's call was not established:\n{text[-2000:]}")
        recordings = sorted(self.folder.glob("dump-*-dec.wav"))
        check(recordings, f"baresip recorded nothing:\n{text[-2000:]}")
        measured = subprocess.run(["sox", str(recordings[0]), "-n", "trim", "0.5", "1.5", "stat"],
                                  capture_output=True, text=True, check=False).stderr
        frequency = float(re.search(r"Rough\s+frequency:\s+(\d+)", measured).group(1))
        level = float(re.search(r"RMS\s+amplitude:\s+([\d.]+)", measured).group(1))
        check(abs(frequency - hertz) < 20, f"a tone of {frequency} Hz was heard, {hertz} Hz was sent")
        check(level > 0.2, f"the tone came at {level} of full scale")
