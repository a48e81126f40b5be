"""OpenCV as a peer of the camcorder: a recording loop of cv2.imwrite and a
replay loop of cv2.imread, timed inside the process (module import and frame
loading excluded), with the processor time the loop took. Prints one JSON object.

    opencv_peer.py record --inputs frame00.pgm ... --frames N --quality Q --out DIR
    opencv_peer.py replay --folder DIR --frames N
"""
import argparse
import json
import os
import sys
import time

import cv2


def record(args):
    frames = [cv2.imread(path, cv2.IMREAD_UNCHANGED) for path in args.inputs]
    if any(frame is None for frame in frames):
        sys.exit("opencv_peer: cannot read the input frames")
    os.makedirs(args.out, exist_ok=True)
    params = [cv2.IMWRITE_JPEG_QUALITY, args.quality]
    cpu = time.process_time()
    start = time.perf_counter()
    for i in range(args.frames):
        if not cv2.imwrite(os.path.join(args.out, "%04d.jpg" % i), frames[i % len(frames)], params):
            sys.exit("opencv_peer: imwrite failed")
    seconds = time.perf_counter() - start
    cpu = time.process_time() - cpu
    print(json.dumps({"tool": "opencv", "frames": args.frames, "seconds": seconds,
                      "fps": args.frames / seconds, "cpu_seconds": cpu,
                      "version": cv2.__version__}))


def replay(args):
    files = sorted(os.path.join(args.folder, name) for name in os.listdir(args.folder) if name.endswith(".jpg"))
    files = files[:args.frames]
    if len(files) < args.frames:
        sys.exit("opencv_peer: too few files")
    cpu = time.process_time()
    start = time.perf_counter()
    for path in files:
        if cv2.imread(path, cv2.IMREAD_UNCHANGED) is None:
            sys.exit("opencv_peer: cannot decode " + path)
    seconds = time.perf_counter() - start
    cpu = time.process_time() - cpu
    print(json.dumps({"tool": "opencv", "frames": args.frames, "seconds": seconds,
                      "fps": args.frames / seconds, "cpu_seconds": cpu,
                      "version": cv2.__version__}))


def main():
    parser = argparse.ArgumentParser()
    sub = parser.add_subparsers(dest="command", required=True)
    rec = sub.add_parser("record")
    rec.add_argument("--inputs", nargs="+", required=True)
    rec.add_argument("--frames", type=int, required=True)
    rec.add_argument("--quality", type=int, required=True)
    rec.add_argument("--out", required=True)
    rep = sub.add_parser("replay")
    rep.add_argument("--folder", required=True)
    rep.add_argument("--frames", type=int, required=True)
    args = parser.parse_args()
    record(args) if args.command == "record" else replay(args)


if __name__ == "__main__":
    main()
