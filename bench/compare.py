"""Measures the camcorder against the tools users would pick instead, round
by round over the same frames, and writes bench/results/latest.json,
latest.md and recording.png. Run through bench/run_all.sh, which installs
the tools and builds bench/compare_bench first.

Benchmarks (every tool gets the same fixed-seed frames):
  1. recording to numbered JPEG files on tmpfs: the camcorder with its save
     thread (RecordOptions 1 and 2) against a plain one-thread libjpeg-turbo
     loop (the reference), the same loop on two threads, ffmpeg image2,
     OpenCV imwrite and GStreamer jpegenc ! multifilesink;
  2. recording to one motion-JPEG AVI: the camcorder (FileFormat 2) against a
     one-thread loop appending every frame to one file (the reference),
     ffmpeg -c:v mjpeg and GStreamer avimux;
  3. replay of 300 files: the camcorder's playback and the file player
     against a one-thread libjpeg-turbo decode loop (the reference), OpenCV
     imread and ffmpeg -f null, over the camcorder's own recordings and over
     files of a one-thread encoder;
  4. the module's own cost per frame with an archive that writes nothing,
     and per sink of firing ImageGrabbed;
  5. GetLastFileIndex over 10,000 recorded files against listing the folder.
"""
import argparse
import datetime
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PYTHON = "/usr/bin/python3"  # Debian's, with python3-opencv and python3-matplotlib


class BenchError(Exception):
    pass


def child_cpu():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


LAST_CPU = [0.0]  # processor seconds of the command run last, every thread of it


def run(cmd, cwd=None, timeout=600):
    """Runs a command; returns (wall seconds, stdout, stderr). Raises on failure."""
    cpu = child_cpu()
    start = time.perf_counter()
    proc = subprocess.run([str(c) for c in cmd], cwd=cwd, capture_output=True, text=True, timeout=timeout,
                          stdin=subprocess.DEVNULL)
    seconds = time.perf_counter() - start
    LAST_CPU[0] = child_cpu() - cpu
    if proc.returncode != 0:
        raise BenchError("%s failed (%d): %s" % (" ".join(str(c) for c in cmd[:6]), proc.returncode,
                                                 (proc.stderr or proc.stdout)[-600:]))
    return seconds, proc.stdout, proc.stderr


def last_json(text):
    for line in reversed(text.strip().splitlines()):
        line = line.strip()
        if line.startswith("{"):
            return json.loads(line)
    raise BenchError("no JSON in output: " + text[-300:])


def cpu_busy():
    """Busy jiffies of the whole machine, and CPU seconds of this process and its children."""
    with open("/proc/stat") as f:
        fields = [int(v) for v in f.readline().split()[1:]]
    idle = fields[3] + fields[4]
    times = os.times()
    return sum(fields[:8]) - idle, times.user + times.system + times.children_user + times.children_system


def median(values):
    return statistics.median(values) if values else float("nan")


class Compare:
    def __init__(self, args):
        self.args = args
        self.bin = Path(args.bin).resolve()
        self.work = Path(args.work)
        self.out = Path(args.results)
        self.frames = args.frames
        self.distinct = args.distinct
        self.width, self.height = (int(v) for v in args.size.split("x"))
        self.size = args.size
        self.runs = []
        self.rounds_info = []
        self.meta = {}
        self.tick = os.sysconf("SC_CLK_TCK")

    # ---- helpers -------------------------------------------------------------

    def bench(self, *args):
        seconds, out, _ = run([self.bin / "compare_bench", *args], cwd=self.bin)
        return last_json(out), seconds

    def fmt(self, bits):
        return "gray" if bits == 8 else "colour"

    def raw(self, bits):
        return self.work / "in" / ("gray.raw" if bits == 8 else "bgr.raw")

    def fresh(self, path):
        path = Path(path)
        if path.is_dir():
            shutil.rmtree(path)
        elif path.exists():
            path.unlink()
        return path

    def quality_of(self, bits, folder, count=None, reference=None):
        args = ["psnr", "--bits", bits, "--input", self.raw(bits), "--size", self.size, "--frames",
                count or self.distinct, "--folder", folder]
        if reference:
            args += ["--reference", reference]
        return self.bench(*args)[0]

    def check_files(self, folder, count):
        """Counts the files and decodes a sample (first, middle, last) with djpeg and ffprobe."""
        files = sorted(p for p in Path(folder).iterdir() if p.suffix == ".jpg")
        result = {"files": len(files), "bytes": sum(p.stat().st_size for p in files), "djpeg": 0, "ffprobe": 0,
                  "sample": 0, "failures": []}
        if len(files) != count:
            result["failures"].append("%d files, not %d" % (len(files), count))
        sample = [files[i] for i in sorted({0, len(files) // 2, len(files) - 1})] if files else []
        for path in sample:
            result["sample"] += 1
            if self.djpeg_ok(path):
                result["djpeg"] += 1
            else:
                result["failures"].append("djpeg: " + path.name)
            if self.ffprobe_ok(path):
                result["ffprobe"] += 1
            else:
                result["failures"].append("ffprobe: " + path.name)
        return result

    def djpeg_ok(self, path):
        proc = subprocess.run(["djpeg", "-outfile", "/dev/null", str(path)], capture_output=True, text=True)
        return proc.returncode == 0 and not proc.stderr.strip()

    def ffprobe_ok(self, path, packets=None, fmt=None):
        cmd = ["ffprobe", "-v", "error"]
        if fmt:
            cmd += ["-f", fmt]
        if packets is not None:
            cmd += ["-count_packets"]
        cmd += ["-select_streams", "v:0", "-show_entries", "stream=codec_name,width,height" +
                (",nb_read_packets" if packets is not None else ""), "-of", "csv=p=0", str(path)]
        proc = subprocess.run(cmd, capture_output=True, text=True)
        if proc.returncode != 0 or proc.stderr.strip():
            return False
        fields = proc.stdout.strip().split(",")
        if fields[:3] != ["mjpeg", str(self.width), str(self.height)]:
            return False
        return packets is None or (len(fields) > 3 and fields[3] == str(packets))

    def extract(self, video, folder, fmt=None):
        """The first frames of a motion-JPEG file as JPEG files, copied without re-coding."""
        self.fresh(folder).mkdir(parents=True)
        cmd = ["ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin"]
        if fmt:
            cmd += ["-f", fmt]
        cmd += ["-i", video, "-map", "0:v:0", "-c:v", "copy", "-frames:v", self.distinct, "-start_number", "0",
                Path(folder) / "%04d.jpg"]
        run(cmd)

    # ---- the tools -----------------------------------------------------------

    def ffmpeg_encode(self, bits, count, q, target, avi):
        pix_in = "gray" if bits == 8 else "bgr24"
        # ffmpeg's MJPEG coder has no one-component mode: gray goes in as
        # YUV with flat chroma at its smallest (4:2:0), colour at 4:4:4.
        pix_out = "yuvj420p" if bits == 8 else "yuvj444p"
        cmd = ["ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-y", "-f", "rawvideo", "-pix_fmt",
               pix_in, "-video_size", self.size, "-framerate", "25", "-stream_loop", "-1", "-i", self.raw(bits),
               "-frames:v", count, "-c:v", "mjpeg", "-pix_fmt", pix_out, "-qmin", "1", "-q:v", q]
        if avi:
            cmd += ["-f", "avi", target]
        else:
            cmd += ["-start_number", "0", Path(target) / "%04d.jpg"]
        return cmd

    def gst_encode(self, bits, count, quality, target, avi):
        pattern = self.work / "in" / ("gray%02d.raw" if bits == 8 else "bgr%02d.raw")
        cmd = ["gst-launch-1.0", "-q", "multifilesrc", "location=%s" % pattern, "index=0", "start-index=0",
               "stop-index=%d" % (self.distinct - 1), "loop=true", "num-buffers=%d" % count, "!", "rawvideoparse",
               "width=%d" % self.width, "height=%d" % self.height, "format=%s" % ("gray8" if bits == 8 else "bgr"),
               "framerate=25/1", "!", "jpegenc", "quality=%d" % quality, "idct-method=islow", "!"]
        if avi:
            cmd += ["avimux", "!", "filesink", "location=%s" % target]
        else:
            cmd += ["multifilesink", "sync=false", "location=%s" % (Path(target) / "%04d.jpg")]
        return cmd

    def pnm_inputs(self, bits):
        return [self.work / "in" / ("frame%02d.%s" % (k, "pgm" if bits == 8 else "ppm")) for k in range(self.distinct)]

    def record_jpeg(self, tool, bits, folder, frames=None):
        """One recording of `frames` (default `self.frames`) frames into `folder`; seconds and how they were timed."""
        n, q = frames or self.frames, self.q_jpeg
        if tool in ("camcorder1", "camcorder2", "plain1", "plain2"):
            result, _ = self.bench("record", "--tool", tool, "--bits", bits, "--input", self.raw(bits), "--size",
                                   self.size, "--frames", n, "--quality", q, "--out", folder)
            return result["seconds"], "in process", result["cpu_seconds"]
        if tool == "ffmpeg":
            folder.mkdir(parents=True)
            seconds, _, _ = run(self.ffmpeg_encode(bits, n, self.ffmpeg_q["jpeg"][self.fmt(bits)], folder, False))
            return seconds, "whole process", LAST_CPU[0]
        if tool == "opencv":
            _, out, _ = run([PYTHON, ROOT / "bench" / "opencv_peer.py", "record", "--inputs",
                             *self.pnm_inputs(bits), "--frames", n, "--quality", q, "--out", folder])
            result = last_json(out)
            return result["seconds"], "in process", result["cpu_seconds"]
        if tool == "gstreamer":
            folder.mkdir(parents=True)
            seconds, _, _ = run(self.gst_encode(bits, n, q, folder, False))
            return seconds, "whole process", LAST_CPU[0]
        raise BenchError("unknown tool " + tool)

    def record_avi(self, tool, bits, target):
        n, q = self.frames, self.q_avi
        if tool == "camcorder":
            # The camcorder writes "<folder>.avi" beside its folder.
            result, _ = self.bench("record", "--tool", "camcorder-avi", "--bits", bits, "--input", self.raw(bits),
                                   "--size", self.size, "--frames", n, "--quality", q, "--out",
                                   target.with_suffix(""))
            return result["seconds"], "in process", result["cpu_seconds"]
        if tool == "plain-stream":
            result, _ = self.bench("record", "--tool", "plain-stream", "--bits", bits, "--input", self.raw(bits),
                                   "--size", self.size, "--frames", n, "--quality", q, "--out", target)
            return result["seconds"], "in process", result["cpu_seconds"]
        if tool == "ffmpeg":
            seconds, _, _ = run(self.ffmpeg_encode(bits, n, self.ffmpeg_q["avi"][self.fmt(bits)], target, True))
            return seconds, "whole process", LAST_CPU[0]
        if tool == "gstreamer":
            seconds, _, _ = run(self.gst_encode(bits, n, q, target, True))
            return seconds, "whole process", LAST_CPU[0]
        raise BenchError("unknown tool " + tool)

    def replay(self, tool, folder, frames=None):
        n = frames or self.frames
        if tool in ("decode", "camcorder", "player"):
            result, _ = self.bench("replay", "--tool", tool, "--folder", folder, "--frames", n)
            return result["seconds"], "in process", result["cpu_seconds"]
        if tool == "opencv":
            _, out, _ = run([PYTHON, ROOT / "bench" / "opencv_peer.py", "replay", "--folder", folder, "--frames", n])
            result = last_json(out)
            return result["seconds"], "in process", result["cpu_seconds"]
        if tool == "ffmpeg":
            seconds, out, _ = run(["ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-start_number", "0",
                                   "-i", Path(folder) / "%04d.jpg", "-frames:v", n, "-f", "null", "-progress",
                                   "pipe:1", "-nostats", "-"])
            frames = [line.split("=")[1] for line in out.splitlines() if line.startswith("frame=")]
            if not frames or int(frames[-1]) != n:
                raise BenchError("ffmpeg decoded %s frames, not %d" % (frames[-1:] or "no", n))
            return seconds, "whole process", LAST_CPU[0]
        raise BenchError("unknown tool " + tool)

    # ---- preparation ---------------------------------------------------------

    def prepare(self):
        self.fresh(self.work).mkdir(parents=True)
        info, _ = self.bench("generate", "--out", self.work / "in", "--frames", self.distinct, "--size", self.size)
        self.meta["input"] = info
        self.log("inputs: %d distinct %s frames (fixed seed %d), gray and colour, as raw, PGM and PPM files"
                 % (info["frames"], self.size, info["seed"]))

        # The qualities the camcorder writes, read back from its own files:
        # numbered JPEG files (recorded once here and kept for the replay
        # benchmark) and AVI frames.
        self.replay_sets = {}
        for bits in (8, 24):
            fmt = self.fmt(bits)
            cam = self.work / "replay" / ("camcorder-" + fmt)
            self.bench("record", "--tool", "camcorder1", "--bits", bits, "--input", self.raw(bits), "--size",
                       self.size, "--frames", self.frames, "--quality", 100, "--out", cam)
            self.replay_sets[("camcorder", fmt)] = cam
        self.q_jpeg = self.quality_of(8, self.replay_sets[("camcorder", "gray")])["quality"]
        probe = self.work / "probe" / "avi"
        self.bench("record", "--tool", "camcorder-avi", "--bits", 8, "--input", self.raw(8), "--size", self.size,
                   "--frames", self.distinct, "--quality", 100, "--out", probe)
        self.extract(probe.with_suffix(".avi"), self.work / "probe" / "avi-frames")
        self.q_avi = self.quality_of(8, self.work / "probe" / "avi-frames")["quality"]
        if not self.q_jpeg or not self.q_avi:
            raise BenchError("cannot tell the camcorder's JPEG quality")
        self.log("camcorder's quality, read from its files: %d (JPEG files), %d (AVI frames)"
                 % (self.q_jpeg, self.q_avi))

        # One-thread references at those qualities: the replay set of files
        # written by a one-thread encoder, and the pixels every camcorder
        # file is compared with.
        self.refs = {}
        for bits in (8, 24):
            fmt = self.fmt(bits)
            plain = self.work / "replay" / ("plain-" + fmt)
            self.bench("record", "--tool", "plain1", "--bits", bits, "--input", self.raw(bits), "--size", self.size,
                       "--frames", self.frames, "--quality", self.q_jpeg, "--out", plain)
            self.replay_sets[("plain", fmt)] = plain
            self.refs[("jpeg", fmt)] = plain
            ref_avi = self.work / "ref" / ("avi-" + fmt)
            self.bench("record", "--tool", "plain1", "--bits", bits, "--input", self.raw(bits), "--size", self.size,
                       "--frames", self.distinct, "--quality", self.q_avi, "--out", ref_avi)
            self.refs[("avi", fmt)] = ref_avi
        self.ref_quality = {key: self.quality_of(8 if key[1] == "gray" else 24, path)
                            for key, path in self.refs.items()}

        # ffmpeg's MJPEG coder takes -q:v, not a libjpeg quality: pick the
        # setting whose PSNR comes closest to the one-thread reference's.
        self.ffmpeg_q = {"jpeg": {}, "avi": {}}
        self.calibration = []
        for group in ("jpeg", "avi"):
            for bits in (8, 24):
                fmt = self.fmt(bits)
                target = self.ref_quality[(group, fmt)]["psnr"]
                best = None
                for q in range(1, 7):
                    folder = self.fresh(self.work / "probe" / "ffmpeg")
                    folder.mkdir(parents=True)
                    run(self.ffmpeg_encode(bits, self.distinct, q, folder, False))
                    psnr = self.quality_of(bits, folder)["psnr"]
                    self.calibration.append({"group": group, "format": fmt, "q": q, "psnr": psnr,
                                             "target_psnr": target})
                    if best is None or abs(psnr - target) < abs(best[1] - target):
                        best = (q, psnr)
                self.ffmpeg_q[group][fmt] = best[0]
                self.log("ffmpeg -q:v for %s %s: %d (%.2f dB; one-thread libjpeg-turbo at quality %d: %.2f dB)"
                         % (group, fmt, best[0], best[1], self.q_jpeg if group == "jpeg" else self.q_avi, target))

        # Start-up of the tools timed as whole processes: the same command
        # for one frame.
        self.startup = {}
        for name, make in (("ffmpeg", lambda f: self.ffmpeg_encode(8, 1, 1, f, False)),
                           ("gstreamer", lambda f: self.gst_encode(8, 1, self.q_jpeg, f, False))):
            times = []
            for _ in range(3):
                folder = self.fresh(self.work / "probe" / "startup")
                folder.mkdir(parents=True)
                times.append(run(make(folder))[0])
            self.startup[name] = median(times) * 1000
        self.log("one-frame run of ffmpeg: %.0f ms, of gst-launch: %.0f ms (their rates below include this)"
                 % (self.startup["ffmpeg"], self.startup["gstreamer"]))
        shutil.rmtree(self.work / "probe", ignore_errors=True)

    # ---- one round -----------------------------------------------------------

    def record(self, entry):
        entry["fps"] = self.frames / entry["seconds"]
        entry["round"] = self.round
        self.runs.append(entry)
        extra = ""
        if "psnr" in entry:
            extra = "  %6.0f kB/frame  %.2f dB" % (entry["bytes_per_frame"] / 1000, entry["psnr"])
        if entry.get("failures"):
            extra += "  CHECK FAILED: " + "; ".join(entry["failures"])
        self.log("  %-16s %-6s %-12s %8.1f frames/s  %6.2f ms CPU/frame (%.2f cores)%s"
                 % (entry["group"], entry["format"], entry["tool"], entry["fps"], entry["cpu"] * 1000 / self.frames,
                    entry["cpu"] / entry["seconds"], extra))

    @staticmethod
    def rotated(items, r):
        r %= len(items)
        return items[r:] + items[:r]

    def round_jpeg(self, bits):
        fmt = self.fmt(bits)
        tools = ["plain1", "camcorder1", "ffmpeg", "plain2", "opencv", "camcorder2", "gstreamer"]
        for tool in self.rotated(tools, self.round):
            folder = self.fresh(self.work / "out" / tool)
            beside = self.work / "out" / "paired-reference"
            (seconds, timing, cpu), paired = self.paired_with_reference(
                tool, lambda: self.record_jpeg(tool, bits, folder),
                lambda frames: self.record_jpeg("plain1", bits, self.fresh(beside), frames)[0])
            self.fresh(beside)
            checks = self.check_files(folder, self.frames)
            quality = self.quality_of(bits, folder, reference=self.refs[("jpeg", fmt)]
                                      if tool.startswith("camcorder") else None)
            self.record({"group": "jpeg", "format": fmt, "tool": tool, "seconds": seconds, "timing": timing, "cpu": cpu,
                         "bytes_per_frame": checks["bytes"] / max(1, checks["files"]), **quality,
                         "checks": checks, "failures": checks["failures"], **paired})
            shutil.rmtree(folder, ignore_errors=True)

    def paired_with_reference(self, tool, run, measure_reference):
        """Runs `tool`; the module's own tools between two runs of the
        reference, each over half the frames. The rate of this shared machine
        drifts within a round, by a fifth at times; the goals compare the
        module with the reference measured on both sides of it, which cancels
        a drift that runs one way. Returns run's result and the pairing."""
        if not (tool.startswith("camcorder") or tool == "player"):
            return run(), {}
        before = self.frames // 2
        after = self.frames - before
        seconds_before = measure_reference(before)
        result = run()
        seconds_after = measure_reference(after)
        return result, {"paired_reference_fps": self.frames / (seconds_before + seconds_after),
                        "paired_reference_fps_before": before / seconds_before,
                        "paired_reference_fps_after": after / seconds_after}

    def round_avi(self, bits):
        fmt = self.fmt(bits)
        (self.work / "out").mkdir(parents=True, exist_ok=True)
        for tool in self.rotated(["plain-stream", "camcorder", "ffmpeg", "gstreamer"], self.round):
            target = self.fresh(self.work / "out" / (tool + (".mjpg" if tool == "plain-stream" else ".avi")))
            seconds, timing, cpu = self.record_avi(tool, bits, target)
            demux = "mjpeg" if tool == "plain-stream" else None
            failures = []
            if not self.ffprobe_ok(target, packets=self.frames, fmt=demux):
                failures.append("ffprobe: not %d MJPEG frames of %s" % (self.frames, self.size))
            frames = self.work / "out" / "frames"
            self.extract(target, frames, fmt=demux)
            for name in ("%04d.jpg" % 0, "%04d.jpg" % (self.distinct - 1)):
                if not self.djpeg_ok(frames / name):
                    failures.append("djpeg: frame " + name)
            quality = self.quality_of(bits, frames, reference=self.refs[("avi", fmt)] if tool == "camcorder" else None)
            self.record({"group": "avi", "format": fmt, "tool": tool, "seconds": seconds, "timing": timing, "cpu": cpu,
                         "bytes_per_frame": target.stat().st_size / self.frames, **quality,
                         "checks": {"ffprobe_packets": not failures, "sample": 2}, "failures": failures})
            target.unlink()
            shutil.rmtree(frames, ignore_errors=True)

    def round_replay(self, bits):
        fmt = self.fmt(bits)
        for files in ("camcorder", "plain"):
            folder = self.replay_sets[(files, fmt)]
            for tool in self.rotated(["decode", "camcorder", "player", "opencv", "ffmpeg"], self.round):
                (seconds, timing, cpu), paired = self.paired_with_reference(
                    tool, lambda: self.replay(tool, folder), lambda frames: self.replay("decode", folder, frames)[0])
                self.record({"group": "replay-" + files, "format": fmt, "tool": tool, "seconds": seconds,
                             "timing": timing, "cpu": cpu, **paired})

    def round_module(self):
        overhead, _ = self.bench("overhead", "--frames", self.args.overhead_frames, "--steps",
                                 self.args.overhead_steps)
        overhead["round"] = self.round
        overhead["group"] = "overhead"
        self.runs.append(overhead)
        self.log("  module: %.3f us/frame in the camera's thread, %.3f us/frame through the save thread; "
                 "firing %.1f / %.1f / %.1f ns per sink (1 / 8 / 64 sinks)"
                 % (overhead["us_per_frame_options0"], overhead["us_per_frame_options1"],
                    overhead["ns_per_sink_1"], overhead["ns_per_sink_8"], overhead["ns_per_sink_64"]))
        index, _ = self.bench("lastindex", "--folder", self.work / "many", "--files", self.args.files)
        index["round"] = self.round
        index["group"] = "lastindex"
        self.runs.append(index)
        self.log("  GetLastFileIndex over %d files: %.1f us (index %d); readdir listing: %.1f us (index %d)"
                 % (index["files"], index["component_us"], index["component_index"], index["listing_us"],
                    index["listed_index"]))

    def rounds(self):
        # Recording to JPEG files is the quickest group and the one whose
        # goals sit closest to the machine's two-core limit, so it runs in
        # more rounds than the others: a minute in which the host takes a
        # core away then moves its median less.
        total = self.recording_rounds()
        for r in range(total):
            self.round = r + 1
            everything = self.round <= self.args.rounds
            busy0, ours0 = cpu_busy()
            wall0 = time.time()
            self.log("round %d of %d%s (load average %.2f)"
                     % (self.round, total, "" if everything else ", JPEG recording only", os.getloadavg()[0]))
            for bits in (8, 24):
                self.round_jpeg(bits)
            if everything:
                for bits in (8, 24):
                    self.round_avi(bits)
                for bits in (8, 24):
                    self.round_replay(bits)
                self.round_module()
            busy1, ours1 = cpu_busy()
            wall = time.time() - wall0
            others = max(0.0, ((busy1 - busy0) / self.tick - (ours1 - ours0)) / wall)
            self.rounds_info.append({"round": self.round, "seconds": wall, "load1": os.getloadavg()[0],
                                     "other_cores": others, "recording_only": not everything})
            self.log("  round %d took %.0f s; other processes used %.2f cores meanwhile" % (self.round, wall, others))

    def recording_rounds(self):
        return max(self.args.rounds, self.args.recording_rounds)

    def log(self, text):
        print(text, flush=True)

    # ---- summary -------------------------------------------------------------

    def summarise(self):
        groups = {}
        for entry in self.runs:
            if entry["group"] in ("overhead", "lastindex"):
                continue
            key = (entry["group"], entry["format"], entry["tool"])
            groups.setdefault(key, []).append(entry)
        reference_tool = {"jpeg": "plain1", "avi": "plain-stream", "replay-camcorder": "decode",
                          "replay-plain": "decode"}
        summary = []
        for (group, fmt, tool), entries in groups.items():
            ref_entries = {e["round"]: e for e in groups[(group, fmt, reference_tool[group])]}
            # The module's tools against the reference run on both sides of them;
            # the other tools against the round's reference.
            ratios = [e["fps"] / e.get("paired_reference_fps", ref_entries[e["round"]]["fps"])
                      for e in entries if e["round"] in ref_entries]
            row = {"group": group, "format": fmt, "tool": tool, "reference": reference_tool[group],
                   "rounds": len(entries), "fps": median([e["fps"] for e in entries]),
                   "fps_min": min(e["fps"] for e in entries), "fps_max": max(e["fps"] for e in entries),
                   "ratio": median(ratios), "timing": entries[0]["timing"],
                   "cpu_ms": median([e["cpu"] * 1000 / self.frames for e in entries]),
                   "cores": median([e["cpu"] / e["seconds"] for e in entries]),
                   "failures": sorted({f for e in entries for f in e.get("failures", [])})}
            for field in ("bytes_per_frame", "psnr", "sampling", "colour_space", "quality", "restart_interval",
                          "reference_psnr", "max_difference"):
                if field in entries[0]:
                    values = [e[field] for e in entries]
                    row[field] = median(values) if isinstance(values[0], (int, float)) else values[0]
            if "checks" in entries[0] and group == "jpeg":
                row["checked"] = sum(e["checks"]["sample"] for e in entries)
                row["djpeg_ok"] = sum(e["checks"]["djpeg"] for e in entries)
                row["ffprobe_ok"] = sum(e["checks"]["ffprobe"] for e in entries)
            if "reference_psnr" in entries[0]:
                row["psnr_gap"] = max(abs(e["psnr"] - e["reference_psnr"]) for e in entries)
            summary.append(row)
        self.summary = summary
        over = [e for e in self.runs if e["group"] == "overhead"]
        self.overhead = {k: median([e[k] for e in over]) for k in over[0] if k not in ("group", "round")}
        index = [e for e in self.runs if e["group"] == "lastindex"]
        self.lastindex = {k: median([e[k] for e in index]) for k in index[0] if k not in ("group", "round")}
        self.lastindex["agree"] = all(e["component_index"] == e["listed_index"] for e in index)

    def row(self, group, fmt, tool):
        for r in self.summary:
            if (r["group"], r["format"], r["tool"]) == (group, fmt, tool):
                return r
        raise KeyError((group, fmt, tool))

    def goals(self):
        goals = []

        def goal(name, passed, text):
            goals.append({"goal": name, "pass": bool(passed), "detail": text})

        peers = ("ffmpeg", "opencv", "gstreamer")
        for tool, label in (("camcorder1", "RecordOptions 1"), ("camcorder2", "RecordOptions 2")):
            g = self.row("jpeg", "gray", tool)
            behind = []
            for peer in peers:
                p = self.row("jpeg", "gray", peer)
                if not (g["fps"] > p["fps"] and g["psnr"] >= p["psnr"]):
                    behind.append("%s %.1f frames/s at %.2f dB" % (peer, p["fps"], p["psnr"]))
            ref = self.row("jpeg", "gray", "plain1")
            goal("gray JPEG recording, %s, >= 1.7x the one-thread loop" % label, g["ratio"] >= 1.7,
                 "%.2fx (%.1f vs %.1f frames/s; %.2f vs %.2f ms CPU per frame on %.2f cores)"
                 % (g["ratio"], g["fps"], ref["fps"], g["cpu_ms"], ref["cpu_ms"], g["cores"]))
            goal("gray JPEG recording, %s, ahead of every peer at equal or higher PSNR" % label, not behind,
                 ("%.1f frames/s at %.2f dB" % (g["fps"], g["psnr"])) +
                 ("; behind or below: " + ", ".join(behind) if behind else ""))
            c = self.row("jpeg", "colour", tool)
            ref = self.row("jpeg", "colour", "plain1")
            goal("colour (4:4:4) JPEG recording, %s, >= 1.6x the one-thread loop" % label, c["ratio"] >= 1.6,
                 "%.2fx (%.1f vs %.1f frames/s; %.2f vs %.2f ms CPU per frame on %.2f cores)"
                 % (c["ratio"], c["fps"], ref["fps"], c["cpu_ms"], ref["cpu_ms"], c["cores"]))

        cam_rows = [r for r in self.summary if (r["group"] == "jpeg" and r["tool"].startswith("camcorder")) or
                    (r["group"] == "avi" and r["tool"] == "camcorder")]
        failures = [f for r in self.summary for f in r["failures"]]
        checked = sum(r.get("checked", 0) for r in self.summary)
        goal("every sampled file decodes with djpeg and ffprobe", not failures,
             "%d JPEG files and every AVI checked with both%s" % (checked, "; failures: " + ", ".join(failures)
                                                                  if failures else ""))
        gap = max(r["psnr_gap"] for r in cam_rows)
        diff = max(r["max_difference"] for r in cam_rows)
        goal("camcorder pixels within 0.1 dB PSNR of a one-thread encode", gap <= 0.1,
             "largest PSNR gap %.4f dB, largest pixel difference %d levels" % (gap, diff))
        for fmt in ("gray", "colour"):
            for tool in ("camcorder", "player"):
                own = self.row("replay-camcorder", fmt, tool)
                other = self.row("replay-plain", fmt, tool)
                own_ref = self.row("replay-camcorder", fmt, "decode")
                other_ref = self.row("replay-plain", fmt, "decode")
                goal("replay of the camcorder's %s recordings by the %s >= 1.6x the decode loop"
                     % (fmt, "camcorder" if tool == "camcorder" else "file player"), own["ratio"] >= 1.6,
                     "%.2fx (%.1f vs %.1f frames/s; %.2f vs %.2f ms CPU per frame on %.2f cores)"
                     % (own["ratio"], own["fps"], own_ref["fps"], own["cpu_ms"], own_ref["cpu_ms"], own["cores"]))
                goal("replay of other %s JPEGs by the %s >= 0.95x the decode loop"
                     % (fmt, "camcorder" if tool == "camcorder" else "file player"), other["ratio"] >= 0.95,
                     "%.2fx (%.1f vs %.1f frames/s; %.2f vs %.2f ms CPU per frame)"
                     % (other["ratio"], other["fps"], other_ref["fps"], other["cpu_ms"], other_ref["cpu_ms"]))
        o = self.overhead
        for key, label in (("us_per_frame_options0", "in the camera's thread (RecordOptions 0)"),
                           ("us_per_frame_options1", "through the save thread (RecordOptions 1)")):
            goal("module overhead per frame %s < 2 us" % label, o[key] < 2.0, "%.3f us" % o[key])
        for n in (1, 8, 64):
            goal("firing ImageGrabbed to %d sink%s < 100 ns per sink" % (n, "s" if n > 1 else ""),
                 o["ns_per_sink_%d" % n] < 100.0, "%.1f ns" % o["ns_per_sink_%d" % n])
        self.goal_list = goals
        return goals

    # ---- reports -------------------------------------------------------------

    TOOL_NAMES = {
        "plain1": "plain libjpeg-turbo loop, one thread (reference)",
        "plain2": "plain libjpeg-turbo loop, two threads",
        "camcorder1": "camcorder, save thread (RecordOptions 1)",
        "camcorder2": "camcorder, save thread with copies (RecordOptions 2)",
        "camcorder": "camcorder",
        "ffmpeg": "ffmpeg",
        "opencv": "OpenCV",
        "gstreamer": "GStreamer",
        "plain-stream": "plain libjpeg-turbo loop, one thread, one file (reference)",
        "decode": "libjpeg-turbo decode loop, one thread (reference)",
        "player": "file player",
    }

    def tool_name(self, group, fmt, tool):
        name = self.TOOL_NAMES[tool]
        if group == "jpeg" and tool == "ffmpeg":
            name = "ffmpeg image2, -q:v %d" % self.ffmpeg_q["jpeg"][fmt]
        elif group == "avi" and tool == "ffmpeg":
            name = "ffmpeg -c:v mjpeg, -q:v %d" % self.ffmpeg_q["avi"][fmt]
        elif group == "jpeg" and tool == "opencv":
            name = "OpenCV imwrite, IMWRITE_JPEG_QUALITY %d" % self.q_jpeg
        elif group == "jpeg" and tool == "gstreamer":
            name = "GStreamer jpegenc quality=%d ! multifilesink" % self.q_jpeg
        elif group == "avi" and tool == "gstreamer":
            name = "GStreamer jpegenc quality=%d ! avimux" % self.q_avi
        elif group == "avi" and tool == "camcorder":
            name = "camcorder, FileFormat 2 (AVI), RecordOptions 1"
        elif group.startswith("replay") and tool == "camcorder":
            name = "camcorder playback (Grab steps)"
        elif group.startswith("replay") and tool == "player":
            name = "file player (Grab steps)"
        elif group.startswith("replay") and tool == "opencv":
            name = "OpenCV imread"
        elif group.startswith("replay") and tool == "ffmpeg":
            name = "ffmpeg -f null"
        if self.row(group, fmt, tool)["timing"] == "whole process":
            name += " *"
        return name

    def markdown(self):
        lines = []
        m = self.meta
        lines.append("Measured %s on %s (%d cores), %d rounds (%d of recording to JPEG files), tools interleaved "
                     "round by round; "
                     "medians over the rounds, with the slowest and fastest round. Ratios are the median of each "
                     "round's ratio to the reference of the same round; the camcorder and the file player are "
                     "compared with the reference run over half the frames right before theirs and half right "
                     "after. Other processes used %.2f cores on average "
                     "during the rounds (at most %.2f in one round)."
                     % (m["date"], m["cpu"], m["cores"], self.args.rounds, self.recording_rounds(),
                        m["other_cores_mean"], m["other_cores_max"]))
        lines.append("")
        lines.append("Frames: %d distinct %s frames (fixed seed: gradients, edges, noise), 8-bit gray and 24-bit "
                     "colour, cycled to %d frames per run; files on tmpfs (/dev/shm)." %
                     (self.distinct, self.size, self.frames))
        lines.append("")
        titles = [("jpeg", "Recording to numbered JPEG files (quality %d)" % self.q_jpeg),
                  ("avi", "Recording to one motion-JPEG AVI (the camcorder's AVI quality, %d)" % self.q_avi)]
        for group, title in titles:
            for fmt in ("gray", "colour"):
                lines.append("**%s, %s**" % (title, fmt))
                lines.append("")
                lines.append("| | frames/s (min – max) | ratio | CPU ms/frame (cores) | bytes/frame | PSNR | sampling "
                             "| checks |")
                lines.append("|---|---|---|---|---|---|---|---|")
                for r in sorted((r for r in self.summary if r["group"] == group and r["format"] == fmt),
                                key=lambda r: -r["fps"]):
                    checks = "fail: " + ", ".join(r["failures"]) if r["failures"] else "ok"
                    sampling = r["sampling"] + ("" if r["colour_space"] in ("gray", "YCbCr") else " " +
                                                r["colour_space"])
                    lines.append("| %s | %.1f (%.1f – %.1f) | %.2f | %.2f (%.2f) | %s | %.2f dB | %s | %s |" % (
                        self.tool_name(group, fmt, r["tool"]), r["fps"], r["fps_min"], r["fps_max"], r["ratio"],
                        r["cpu_ms"], r["cores"], "{:,.0f}".format(r["bytes_per_frame"]), r["psnr"], sampling,
                        checks))
                lines.append("")
        for fmt in ("gray", "colour"):
            lines.append("**Replay of %d %s JPEG files, as fast as each can step**" % (self.frames, fmt))
            lines.append("")
            lines.append("| | camcorder's recordings: frames/s (min – max) | ratio | CPU ms/frame (cores) "
                         "| one-thread encoder's files: frames/s (min – max) | ratio | CPU ms/frame (cores) |")
            lines.append("|---|---|---|---|---|---|---|")
            for tool in ("decode", "camcorder", "player", "opencv", "ffmpeg"):
                own = self.row("replay-camcorder", fmt, tool)
                other = self.row("replay-plain", fmt, tool)
                lines.append("| %s | %.1f (%.1f – %.1f) | %.2f | %.2f (%.2f) | %.1f (%.1f – %.1f) | %.2f | %.2f (%.2f) |" % (
                    self.tool_name("replay-camcorder", fmt, tool), own["fps"], own["fps_min"], own["fps_max"],
                    own["ratio"], own["cpu_ms"], own["cores"], other["fps"], other["fps_min"], other["fps_max"],
                    other["ratio"], other["cpu_ms"], other["cores"]))
            lines.append("")
        o, li = self.overhead, self.lastindex
        lines.append("**The module's own cost** (an archive that writes nothing, registered as \"LUMArchive\")")
        lines.append("")
        lines.append("| | measured | goal |")
        lines.append("|---|---|---|")
        lines.append("| per frame, written in the camera's thread (RecordOptions 0) | %.3f µs (%s frames/s) | "
                     "< 2 µs |" % (o["us_per_frame_options0"], "{:,.0f}".format(1e6 / o["us_per_frame_options0"])))
        lines.append("| per frame, through the save thread (RecordOptions 1) | %.3f µs (%s frames/s) | < 2 µs |"
                     % (o["us_per_frame_options1"], "{:,.0f}".format(1e6 / o["us_per_frame_options1"])))
        lines.append("| playback step with 0 sinks (reference; least disturbed of %d turns, as the steps below) | %.0f ns | |"
                     % (o.get("turns", 7), o["step_ns_0"]))
        for n in (1, 8, 64):
            lines.append("| firing ImageGrabbed, %d sink%s | %.1f ns per sink (step %.0f ns) | < 100 ns |"
                         % (n, "s" if n > 1 else "", o["ns_per_sink_%d" % n], o["step_ns_%d" % n]))
        lines.append("")
        lines.append("**Last file index over %s recorded files**" % "{:,}".format(int(li["files"])))
        lines.append("")
        lines.append("| | time | ratio |")
        lines.append("|---|---|---|")
        lines.append("| listing the folder with readdir, largest number (reference) | %s µs | 1 |"
                     % "{:,.0f}".format(li["listing_us"]))
        lines.append("| `GetLastFileIndex` (index %d; the listing found %d) | %s µs | %.2f |"
                     % (li["component_index"], li["listed_index"], "{:,.0f}".format(li["component_us"]),
                        li["listing_us"] / li["component_us"]))
        lines.append("")
        lines.append("Ratios above 1 are faster than the reference. * timed as a whole process, including its "
                     "start-up (one-frame run: ffmpeg %.0f ms, gst-launch %.0f ms); all other tools are timed "
                     "inside their process, frames already in memory. CPU ms/frame is the processor time of every "
                     "thread of the tool per frame, cores the processor time over the wall time. ffmpeg's MJPEG coder writes no one-component "
                     "file: gray goes through 4:2:0 with flat chroma; its -q:v is the setting (1–6, with -qmin 1) "
                     "whose PSNR comes closest to the one-thread libjpeg-turbo encode. PSNR is against the source "
                     "frames over the %d distinct frames, decoded with libjpeg-turbo."
                     % (self.startup["ffmpeg"], self.startup["gstreamer"], self.distinct))
        lines.append("")
        lines.append("| goal | result | measured |")
        lines.append("|---|---|---|")
        for g in self.goal_list:
            lines.append("| %s | %s | %s |" % (g["goal"], "pass" if g["pass"] else "**miss**", g["detail"]))
        lines.append("")
        return "\n".join(lines)

    def plot(self, path):
        import matplotlib
        matplotlib.use("Agg")
        import matplotlib.pyplot as plt

        fig, axes = plt.subplots(1, 2, figsize=(13, 5.2), gridspec_kw={"width_ratios": [7, 4]})
        for ax, group, title in ((axes[0], "jpeg", "numbered JPEG files, quality %d" % self.q_jpeg),
                                 (axes[1], "avi", "one motion-JPEG AVI, quality %d" % self.q_avi)):
            tools = [r["tool"] for r in self.summary if r["group"] == group and r["format"] == "gray"]
            tools.sort(key=lambda t: -self.row(group, "gray", t)["fps"])
            xs = range(len(tools))
            for offset, fmt, colour in ((-0.2, "gray", "#888888"), (0.2, "colour", "#d0703c")):
                rows = [self.row(group, fmt, t) for t in tools]
                heights = [r["fps"] for r in rows]
                errors = [[r["fps"] - r["fps_min"] for r in rows], [r["fps_max"] - r["fps"] for r in rows]]
                bars = ax.bar([x + offset for x in xs], heights, 0.4, yerr=errors, capsize=3, color=colour,
                              label=fmt)
                for bar, r in zip(bars, rows):
                    note = "%.2f×" % r["ratio"]
                    if r.get("sampling") not in (None, "gray", "4:4:4"):
                        note += "\n" + r["sampling"]
                    ax.annotate(note, (bar.get_x() + bar.get_width() / 2, r["fps_max"]),
                                ha="center", va="bottom", fontsize=7, xytext=(0, 3), textcoords="offset points")
            labels = {"plain1": "libjpeg-turbo\n1 thread (ref)", "plain2": "libjpeg-turbo\n2 threads",
                      "camcorder1": "camcorder\noptions 1", "camcorder2": "camcorder\noptions 2",
                      "camcorder": "camcorder", "ffmpeg": "ffmpeg", "opencv": "OpenCV", "gstreamer": "GStreamer",
                      "plain-stream": "libjpeg-turbo\n1 thread (ref)"}
            ax.set_xticks(list(xs))
            ax.set_xticklabels([labels[t] for t in tools], fontsize=8)
            ax.set_title(title, fontsize=10)
            ax.set_ylabel("frames/s (median, min–max bars)")
            ax.legend(fontsize=8)
            ax.grid(axis="y", alpha=0.3)
        fig.suptitle("Recording %s frames on %d cores (other processes used %.2f cores on average): "
                     "rate and ratio to the one-thread loop" % (self.size, self.meta["cores"],
                                                                self.meta["other_cores_mean"]), fontsize=11)
        fig.tight_layout()
        fig.savefig(path, dpi=110)

    def print_summary(self):
        self.log("")
        self.log("==== figures (median of %d rounds, %d for recording to JPEG files) beside their reference"
                 % (self.args.rounds, self.recording_rounds()))
        for group, label in (("jpeg", "JPEG files"), ("avi", "AVI"), ("replay-camcorder", "replay, camcorder's files"),
                             ("replay-plain", "replay, one-thread encoder's files")):
            for fmt in ("gray", "colour"):
                rows = [r for r in self.summary if r["group"] == group and r["format"] == fmt]
                ref = self.row(group, fmt, rows[0]["reference"])
                self.log("%s, %s: reference %s %.1f frames/s" % (label, fmt, self.tool_name(group, fmt, ref["tool"]),
                                                                  ref["fps"]))
                for r in sorted(rows, key=lambda r: -r["fps"]):
                    if r is ref:
                        continue
                    q = "  %.2f dB, %s B/frame" % (r["psnr"], "{:,.0f}".format(r["bytes_per_frame"])) \
                        if "psnr" in r else ""
                    self.log("    %-58s %8.1f frames/s  ratio %.2f  %6.2f ms CPU/frame%s"
                             % (self.tool_name(group, fmt, r["tool"]), r["fps"], r["ratio"], r["cpu_ms"], q))
        o = self.overhead
        self.log("module: %.3f us/frame (RecordOptions 0), %.3f us/frame (RecordOptions 1); playback step %.0f ns "
                 "with no sink" % (o["us_per_frame_options0"], o["us_per_frame_options1"], o["step_ns_0"]))
        li = self.lastindex
        self.log("GetLastFileIndex over %d files: %.0f us beside readdir listing %.0f us: ratio %.2f"
                 % (li["files"], li["component_us"], li["listing_us"], li["listing_us"] / li["component_us"]))
        self.log("")
        self.log("==== goals")
        for g in self.goal_list:
            self.log("  %-4s %s: %s" % ("pass" if g["pass"] else "MISS", g["goal"], g["detail"]))

    def write_reports(self):
        self.summarise()
        self.goals()
        self.out.mkdir(parents=True, exist_ok=True)
        (self.out / "latest.md").write_text(self.markdown())
        self.plot(self.out / "recording.png")

    def report_from(self, path):
        """Writes latest.md and recording.png again from the measurements of a latest.json."""
        data = json.loads(Path(path).read_text())
        settings = data["settings"]
        self.meta, self.runs, self.rounds_info = data["meta"], data["runs"], data["rounds"]
        self.frames, self.distinct, self.size = settings["frames"], settings["distinct"], settings["size"]
        self.args.rounds = settings["rounds"]
        self.args.recording_rounds = settings.get("recording_rounds", self.args.rounds)
        self.q_jpeg, self.q_avi = settings["jpeg_quality"], settings["avi_quality"]
        self.ffmpeg_q, self.startup = settings["ffmpeg_q"], settings["startup_ms"]
        self.write_reports()
        self.print_summary()
        return 0

    def main(self):
        started = time.time()
        cpu = "unknown"
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
        self.meta.update({"date": datetime.datetime.now().strftime("%Y-%m-%d %H:%M"), "cores": os.cpu_count(),
                          "cpu": cpu, "load_at_start": os.getloadavg()})
        self.meta["versions"] = self.versions()
        self.log("load average at start: %.2f %.2f %.2f" % os.getloadavg())
        self.prepare()
        self.rounds()
        others = [r["other_cores"] for r in self.rounds_info]
        self.meta.update({"other_cores_mean": statistics.mean(others), "other_cores_max": max(others),
                          "load_at_end": os.getloadavg(), "seconds": time.time() - started})
        self.write_reports()
        result = {"meta": self.meta, "settings": {"frames": self.frames, "distinct": self.distinct,
                                                  "size": self.size, "rounds": self.args.rounds,
                                                  "recording_rounds": self.recording_rounds(),
                                                  "jpeg_quality": self.q_jpeg, "avi_quality": self.q_avi,
                                                  "ffmpeg_q": self.ffmpeg_q, "startup_ms": self.startup},
                  "calibration": self.calibration, "rounds": self.rounds_info, "summary": self.summary,
                  "overhead": self.overhead, "lastindex": self.lastindex, "goals": self.goal_list, "runs": self.runs}
        (self.out / "latest.json").write_text(json.dumps(result, indent=1) + "\n")
        self.print_summary()
        self.log("")
        self.log("wrote %s, %s and %s; measuring took %.0f s" % (self.out / "latest.json", self.out / "latest.md",
                                                                self.out / "recording.png", self.meta["seconds"]))
        shutil.rmtree(self.work, ignore_errors=True)
        return 0

    def versions(self):
        def first(cmd):
            try:
                return subprocess.run(cmd, capture_output=True, text=True).stdout.splitlines()[0].strip()
            except (OSError, IndexError):
                return "unknown"
        jpeg = subprocess.run(["dpkg-query", "-W", "-f=${Version}", "libjpeg62-turbo"], capture_output=True,
                              text=True).stdout.strip()
        cv = subprocess.run([PYTHON, "-c", "import cv2; print(cv2.__version__)"], capture_output=True,
                            text=True).stdout.strip()
        return {"ffmpeg": first(["ffmpeg", "-version"]), "gstreamer": first(["gst-launch-1.0", "--version"]),
                "opencv": cv, "libjpeg-turbo": jpeg}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", default=str(ROOT / "build" / "bench" / "bin"))
    parser.add_argument("--work", default="/dev/shm/lum-compare")
    parser.add_argument("--results", default=str(ROOT / "bench" / "results"))
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--recording-rounds", type=int, default=5,
                        help="rounds of recording to JPEG files; those past --rounds run nothing else")
    parser.add_argument("--frames", type=int, default=300)
    parser.add_argument("--distinct", type=int, default=10)
    parser.add_argument("--size", default="1280x1024")
    parser.add_argument("--files", type=int, default=10000)
    parser.add_argument("--overhead-frames", type=int, default=200000)
    parser.add_argument("--overhead-steps", type=int, default=50000)
    parser.add_argument("--report", metavar="JSON", help="write latest.md and recording.png again from the "
                        "measurements in JSON (a latest.json), measuring nothing")
    args = parser.parse_args()
    try:
        compare = Compare(args)
        return compare.report_from(args.report) if args.report else compare.main()
    except BenchError as error:
        print("compare.py: %s" % error, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
