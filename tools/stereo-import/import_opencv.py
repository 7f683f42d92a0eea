"""Imports an OpenCV stereo calibration (intrinsics, radial k1 k2 k3, R, T and
stereoRectify's R1 R2 P1 P2) into the module JSON that `kvdsr-calib pack`
turns into a calibration container (docs/remap.md gives the map's model).

Conventions of the library's maps, which this importer inverts:
- a camera section's rectifying homography H takes a rectified output pixel
  to a point of the map grid; the map takes that grid point q to the source
  pixel c + f(r) * F * (q - c), where c is the principal point, F the fill
  scale the map build chooses for the camera and f(r) = 1 + D(r)/100 the
  radial factor at radius r = F * |q - c| * pixelPitch.
- OpenCV's initUndistortRectifyMap takes a rectified pixel p to the
  undistorted pixel u = K R^T P[:, :3]^-1 p and then distorts it about c.
So H = Z_F^-1 K R^T P[:, :3]^-1 with Z_F(q) = c + F (q - c), and the table
samples D(r) = 100 (k1 rho^2 + k2 rho^4 + k3 rho^6) with rho = r / RADIUS_UNIT,
pixelPitch = RADIUS_UNIT / f.
"""

import json
import math
import os
import subprocess
import sys
import tempfile

import numpy as np

RADIUS_UNIT = 10.0  # table radius per unit of normalised radius
TABLE_ENTRIES = 22  # the most a camera section holds
COVER = 1.25  # table reach beyond the farthest image corner


def _i16(v):
    return int(max(-32768, min(32767, round(v))))


def distortion_table(k, focal, width, height, cx, cy):
    """22 entries (radius, distortion) in thousandths, evenly spaced up to
    COVER times the radius of the farthest corner."""
    k1, k2, k3 = k
    corner = max(math.hypot(x - cx, y - cy) for x in (-0.5, width - 0.5) for y in (-0.5, height - 0.5))
    reach = COVER * corner / focal * RADIUS_UNIT
    step = math.floor(reach / (TABLE_ENTRIES - 1) * 1000.0) / 1000.0 + 0.001
    table = []
    for i in range(TABLE_ENTRIES):
        r_milli = int(round(i * step * 1000.0))
        rho = r_milli / 1000.0 / RADIUS_UNIT
        d = 100.0 * (k1 * rho ** 2 + k2 * rho ** 4 + k3 * rho ** 6)
        table.append([r_milli, _i16(d * 1000.0)])
    return table


def zoom(F, cx, cy):
    return np.array([[F, 0, cx * (1 - F)], [0, F, cy * (1 - F)], [0, 0, 1.0]])


def camera_section(number, K, D, Rrect, Prect, P, size, fill_scale=1.0):
    w, h = size
    fx, fy = K[0, 0], K[1, 1]
    focal = math.sqrt(fx * fy)
    px, py = int(round(K[0, 2] * 16)), int(round(K[1, 2] * 16))
    cx, cy = px / 16.0, py / 16.0  # the map's centre is the stored one
    H = K @ Rrect.T @ np.linalg.inv(Prect[:, :3])
    H = np.linalg.inv(zoom(fill_scale, cx, cy)) @ H
    H /= H[2, 2]
    pitch = RADIUS_UNIT / focal
    return {
        "number": number,
        "homography": [float(v) for v in H.ravel()],
        "projection": [float(v) for v in (P / np.linalg.norm(P)).ravel()],
        "mapValues": [0, 0],
        "modelSize": [w, h],
        "calibSize": [w, h],
        "pixelPitch": pitch,
        "focalLength": focal * pitch,
        "principalPoint16": [px, py],
        "distortion": distortion_table((D[0], D[1], D[4] if len(D) > 4 else 0.0), focal, w, h, K[0, 2], K[1, 2]),
    }


def body_from_opencv(cal, fill_scales=(1.0, 1.0)):
    """Camera 1 is OpenCV's first (left) camera, camera 2 the second."""
    P1 = cal["K1"] @ np.hstack([np.eye(3), np.zeros((3, 1))])
    P2 = cal["K2"] @ np.hstack([cal["R"], np.asarray(cal["T"]).reshape(3, 1)])
    size = tuple(int(v) for v in cal["size"])
    return {
        "revision": 2,
        "referenceWidth": size[0],
        "camera1": camera_section(1, cal["K1"], cal["D1"], cal["R1"], cal["P1"], P1, size, fill_scales[0]),
        "camera2": camera_section(2, cal["K2"], cal["D2"], cal["R2"], cal["P2"], P2, size, fill_scales[1]),
    }


def write_module(path, body):
    """One body in a plain 512-byte container, as kvdsr-calib pack reads it."""
    module = {
        "description": "Imported from an OpenCV stereo calibration (camera 1 = OpenCV's first camera)",
        "units": "radius unit = normalised radius / %g; translations in the calibration's unit" % RADIUS_UNIT,
        "container": 512,
        "bodies": [body],
    }
    with open(path, "w") as f:
        json.dump(module, f, indent=1)


def load_opencv_yaml(path):
    """Reads a stereo calibration written with cv2.FileStorage (keys K1 D1 K2
    D2 R T R1 R2 P1 P2 and size = [w, h])."""
    import cv2
    fs = cv2.FileStorage(path, cv2.FILE_STORAGE_READ)
    cal = {k: fs.getNode(k).mat() for k in ("K1", "D1", "K2", "D2", "R", "T", "R1", "R2", "P1", "P2")}
    cal["D1"], cal["D2"], cal["T"] = cal["D1"].ravel(), cal["D2"].ravel(), cal["T"].ravel()
    cal["size"] = tuple(int(v) for v in fs.getNode("size").mat().ravel())
    return cal


def _tool(tool, *args):
    return subprocess.run([tool] + [str(a) for a in args], check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True).stdout


def tools_in(build_dir):
    """(kvdsr-calib, kvdsr-stereo-rig) of a build with tools."""
    return (os.path.join(build_dir, "tools", "kvdsr-calib", "kvdsr-calib"),
            os.path.join(build_dir, "tools", "stereo-import", "kvdsr-stereo-rig"))


def import_to_container(cal, build_dir, out_path, json_path=None):
    """Writes the container for an OpenCV calibration and returns the fill
    scales of cameras 1 and 2. The fill scale depends on the distortion table
    and sizes only, so a first container gives it (computed by the library's
    own map build) and the second carries the homographies that undo it."""
    calib_tool, rig_tool = tools_in(build_dir)
    size = tuple(int(v) for v in cal["size"])
    with tempfile.TemporaryDirectory() as tmp:
        first_json, first_bin = os.path.join(tmp, "first.json"), os.path.join(tmp, "first.bin")
        write_module(first_json, body_from_opencv(cal))
        _tool(calib_tool, "pack", first_json, "-o", first_bin)
        scales = tuple(float(v) for v in _tool(rig_tool, "fill-scale", first_bin, size[0], size[1]).split())
        module_json = json_path or os.path.join(tmp, "module.json")
        write_module(module_json, body_from_opencv(cal, scales))
        _tool(calib_tool, "pack", module_json, "-o", out_path)
    return scales


def main(argv):
    if len(argv) not in (4, 5):
        print("usage: import_opencv.py <stereo.yml> <container.bin> <build-dir> [<module.json>]\n"
              "  stereo.yml: cv2.FileStorage with K1 D1 K2 D2 R T R1 R2 P1 P2 and size [w, h]\n"
              "  build-dir:  a build with tools (kvdsr-calib, kvdsr-stereo-rig)")
        return 2
    scales = import_to_container(load_opencv_yaml(argv[1]), argv[3], argv[2], argv[4] if len(argv) > 4 else None)
    print("wrote %s (fill scales %.6f, %.6f)" % (argv[2], scales[0], scales[1]))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
