"""Objects to feed with: good ones, their second versions, hostile ones."""
import pathlib
import warnings

import pydicom
from pydicom.data import get_testdata_file
from pydicom.uid import ExplicitVRLittleEndian

# What some of these are made for.
warnings.filterwarnings("ignore", module="pydicom")

ROOT = "1.2.826.0.1.3680043.8.498.77"
STRANGE = "1.2.77;touch hacked;$(touch hacked)`touch hacked`"


def _write(dataset, path, uid):
    dataset.SOPInstanceUID = uid
    dataset.file_meta.MediaStorageSOPInstanceUID = uid
    dataset.save_as(path, write_like_original=False)
    return str(path)


def _template():
    dataset = pydicom.dcmread(get_testdata_file("MR_small.dcm"))
    dataset.file_meta.TransferSyntaxUID = ExplicitVRLittleEndian
    dataset.StudyInstanceUID, dataset.SeriesInstanceUID = ROOT + ".2", ROOT + ".3"
    return dataset


def good(folder, count, start=0):
    """`count` objects of one series, each with pixels of its own: (uid, file)."""
    made = []
    for number in range(start, start + count):
        dataset = _template()
        dataset.PixelData = bytes([number % 251, 0]) * (len(dataset.PixelData) // 2)
        uid = f"{ROOT}.4.{number}"
        made.append((uid, _write(dataset, pathlib.Path(folder) / f"{number}.dcm", uid)))
    return made


def second_version(path, folder):
    dataset = pydicom.dcmread(path)
    dataset.PixelData = bytes([200, 1]) * (len(dataset.PixelData) // 2)
    return _write(dataset, pathlib.Path(folder) / ("again-" + pathlib.Path(path).name), dataset.SOPInstanceUID)


def strange(folder):
    """A good object whose UID a shell would run."""
    return _write(_template(), pathlib.Path(folder) / "strange.dcm", STRANGE)


def hostile(folder):
    """Five that a receiver takes and no conversion may come of."""
    made = []
    for number, (name, value) in enumerate(
        [("Rows", 65535), ("BitsAllocated", 17), ("SamplesPerPixel", 60000), ("BitsStored", 40), ("PixelData", b"\0\0")]
    ):
        dataset = _template()
        setattr(dataset, name, value)
        uid = f"{ROOT}.5.{number}"
        made.append((uid, _write(dataset, pathlib.Path(folder) / f"hostile-{number}.dcm", uid)))
    return made
