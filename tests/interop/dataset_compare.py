"""Element-by-element comparison of two DICOM data sets, as pydicom reads them."""
import struct

from pydicom.filebase import DicomBytesIO
from pydicom.filewriter import write_data_element

# VRs whose values pydicom keeps as the file's raw bytes, with the width of their numbers.
RAW_WIDTH = {"OW": 2, "OF": 4, "OL": 4, "OD": 8, "OV": 8}
TEXT_VRS = {"AE", "AS", "CS", "DA", "DS", "DT", "IS", "LO", "LT", "PN", "SH", "ST", "TM", "UC",
            "UI", "UR", "UT"}


def _swap(data, width):
    return b"".join(data[i:i + width][::-1] for i in range(0, len(data) - len(data) % width, width))


def value_bytes(element, little_endian):
    """The element's value as implicit VR little endian bytes, trailing padding removed."""
    vr = element.VR
    if vr in RAW_WIDTH or vr in ("OB", "UN", "OB or OW", "OW or OB"):
        data = element.value or b""
        if not isinstance(data, bytes):
            data = bytes(data)
        if vr in RAW_WIDTH and not little_endian:
            data = _swap(data, RAW_WIDTH[vr])
    else:
        out = DicomBytesIO()
        out.is_little_endian = True
        out.is_implicit_VR = True
        write_data_element(out, element)
        data = out.getvalue()[8:]
    return data.rstrip(b"\0 ") if vr in TEXT_VRS else data


def compare(sent, arrived, where=""):
    """Differences between two data sets (group 0002, group lengths and trailing padding
    aside), each as text; an empty list when they hold the same elements and values."""
    problems = []
    skip = lambda tag: tag.group == 2 or tag.element == 0 or tag == 0xFFFCFFFC
    tags_a = [e.tag for e in sent if not skip(e.tag)]
    tags_b = [e.tag for e in arrived if not skip(e.tag)]
    if tags_a != tags_b:
        missing = sorted(set(tags_a) - set(tags_b))
        extra = sorted(set(tags_b) - set(tags_a))
        problems.append(f"{where} tags differ: missing {missing[:5]} extra {extra[:5]}")
    le_a = getattr(sent, "is_little_endian", True) is not False
    le_b = getattr(arrived, "is_little_endian", True) is not False
    for tag in tags_a:
        if tag not in arrived:
            continue
        a, b = sent[tag], arrived[tag]
        if a.VR == "SQ" or b.VR == "SQ":
            if a.VR != b.VR:
                problems.append(f"{where}{tag} VR {a.VR} arrived as {b.VR}")
                continue
            if len(a.value) != len(b.value):
                problems.append(f"{where}{tag} has {len(a.value)} items, arrived {len(b.value)}")
                continue
            for i, (x, y) in enumerate(zip(a.value, b.value)):
                x.is_little_endian, y.is_little_endian = le_a, le_b
                problems += compare(x, y, f"{where}{tag}[{i}].")
            continue
        # UN stands for any VR; "OB or OW" attributes read from implicit VR streams are OW to
        # pydicom (PS3.5 A.1) while an explicit writer may choose OB for 8-bit data.
        if a.VR != b.VR and "UN" not in (a.VR, b.VR) and {a.VR, b.VR} != {"OB", "OW"}:
            problems.append(f"{where}{tag} VR {a.VR} arrived as {b.VR}")
            continue
        x, y = value_bytes(a, le_a), value_bytes(b, le_b)
        if "UN" in (a.VR, b.VR):  # the other side's padding is not known to be padding
            x, y = x.rstrip(b"\0 "), y.rstrip(b"\0 ")
        if x != y:
            problems.append(f"{where}{tag} {a.VR}->{b.VR} value differs")
    return problems
