#!/usr/bin/env python3
"""validate_bill.py BILL PREFIX: checks that a software bill of materials follows SPDX 3.0.1, as far as
the library's bills use it, and that it matches the files unpacked in PREFIX."""
import hashlib
import json
import pathlib
import re
import sys

CONTEXT = "https://spdx.org/rdf/3.0.1/spdx-context.jsonld"
NO_LICENCE = "expandedlicensing_NoAssertionLicense"  # defined by SPDX itself

# The required and the optional fields of each class.
ELEMENT = ("spdxId creationInfo", "name comment verifiedUsing")
COLLECTION = ("rootElement", "element profileConformance")
ARTIFACT = ("name software_primaryPurpose", "")
CLASSES = {
    "CreationInfo": [("@id specVersion created createdBy", "")],
    "Hash": [("algorithm hashValue", "")],
    "SoftwareAgent": [ELEMENT, ("name", "")],
    "SpdxDocument": [ELEMENT, COLLECTION],
    "software_Sbom": [ELEMENT, COLLECTION, ("element software_sbomType", "")],
    "software_Package": [ELEMENT, ARTIFACT, ("software_packageVersion", "")],
    "software_File": [ELEMENT, ARTIFACT, ("verifiedUsing", "")],
    "Relationship": [ELEMENT, ("from relationshipType to", "")],
    "simplelicensing_LicenseExpression": [ELEMENT, ("simplelicensing_licenseExpression", "")],
}
LISTS = {"createdBy", "element", "profileConformance", "rootElement", "software_sbomType", "to",
         "verifiedUsing"}
ARTIFACTS = {"software_Package", "software_File"}
# The pattern that a value has to match in full; for a list, each element.
PATTERNS = {
    "@id": "_:.+",
    "spdxId": "https://.+#.+",
    "specVersion": r"3\.0\.1",
    "created": r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ",
    "algorithm": "sha256",
    "hashValue": "[0-9a-f]{64}",
    "profileConformance": "core|software|simpleLicensing",
    "software_primaryPurpose": "library|executable",
    "software_sbomType": "build",
    "relationshipType": "contains|hasDeclaredLicense|hasDynamicLink|hasStaticLink",
    "simplelicensing_licenseExpression": r"[\w.+-]+(?: (?:AND|OR|WITH) [\w.+-]+)*",
}
# The allowed classes of the elements that a field refers to.
TARGETS = {
    "creationInfo": {"CreationInfo"},
    "createdBy": {"SoftwareAgent"},
    "from": ARTIFACTS,
    "element": set(CLASSES) - {"CreationInfo", "Hash"},
    ("SpdxDocument", "rootElement"): {"software_Sbom"},
    ("software_Sbom", "rootElement"): {"software_Package"},
    ("hasDeclaredLicense", "to"): {"simplelicensing_LicenseExpression", NO_LICENCE},
    ("contains", "to"): {"software_File"},
    ("hasDynamicLink", "to"): {"software_Package"},
    ("hasStaticLink", "to"): {"software_Package"},
}

errors = []


def check(right, *what):
    if not right:
        errors.append(" ".join(str(word) for word in what))


def name_of(item):
    return item.get("spdxId", item.get("@id", item.get("type")))


def check_value(item, field, value, classes):
    """`classes` is the class of each element, by its id."""
    if field == "verifiedUsing":
        is_hash = isinstance(value, dict) and value.get("type") == "Hash"
        check(is_hash, name_of(item), "is not verified by a hash")
        if is_hash:
            check_fields(value, classes)
        return
    check(isinstance(value, str) and value, name_of(item), field, "is not a string:", value)
    pattern = PATTERNS.get(field)
    check(not pattern or re.fullmatch(pattern, str(value)), name_of(item), field, "is", value)
    kind = item.get("relationshipType") if field == "to" else item["type"]
    targets = TARGETS.get(field, TARGETS.get((kind, field)))
    check(not targets or classes.get(value) in targets, name_of(item), field, "refers to", value)


def check_fields(item, classes):
    groups = CLASSES.get(item.get("type"))
    if not groups:
        check(False, name_of(item), "has an unexpected class")
        return
    required = {field for group in groups for field in group[0].split()}
    allowed = required | {field for group in groups for field in group[1].split()} | {"type"}
    check(required <= item.keys(), name_of(item), "lacks", *sorted(required - item.keys()))
    check(item.keys() <= allowed, name_of(item), "must not have", *sorted(item.keys() - allowed))
    for field, value in item.items():
        if field in LISTS:
            check(isinstance(value, list) and value, name_of(item), field, "is not a list")
        for each in value if isinstance(value, list) and field in LISTS else [value]:
            check_value(item, field, each, classes)


def check_spdx(bill):
    check(bill.keys() == {"@context", "@graph"}, "the document has", *bill)
    check(bill.get("@context") == CONTEXT, "the context is", bill.get("@context"))
    graph = bill["@graph"]
    ids = [name_of(item) for item in graph]
    check(len(set(ids)) == len(ids), "duplicate id")
    classes = {name_of(item): item.get("type") for item in graph}
    classes[NO_LICENCE] = NO_LICENCE
    for item in graph:
        check_fields(item, classes)
    for only in ("CreationInfo", "SpdxDocument", "software_Sbom"):
        check(list(classes.values()).count(only) == 1, "expected exactly one", only)
    outside = {"CreationInfo", "SoftwareAgent", "SpdxDocument", "software_Sbom"}
    listed = {id for item in graph if item.get("type") == "software_Sbom" for id in item.get("element", [])}
    check(listed == {name_of(item) for item in graph if item.get("type") not in outside},
          "the bill does not list all elements")


def find(name, prefix):
    """Finds a file of the package, or a system library, which the bill names without a folder."""
    folders = [prefix, *pathlib.Path("/usr/lib").glob("*-linux-gnu"), pathlib.Path("/usr/lib")]
    return next((folder / name for folder in folders if (folder / name).is_file()), None)


def check_truth(bill, prefix):
    checked = set()
    for item in bill["@graph"]:
        for checksum in item.get("verifiedUsing", []):
            name = item.get("comment", "")
            file = find(name, prefix)
            check(file and hashlib.sha256(file.read_bytes()).hexdigest() == checksum["hashValue"],
                  name_of(item), "is not the file that the bill describes:", name)
            checked.add(name)
    for pattern in ("bin/*.exe", "bin/*.dll", "lib/lib*common*.a", "lib/lib*crypto*.a", "lib/*/lib*.so.*.*.*"):
        for file in prefix.glob(pattern):
            check(str(file.relative_to(prefix)) in checked, file, "is not in the bill")
    return len(checked)


def main():
    bill = json.loads(pathlib.Path(sys.argv[1]).read_text())
    check_spdx(bill)
    if errors:
        sys.exit("\n".join(errors))
    check(re.search("x86_64-[0-9a-f]{16}#", json.dumps(bill)), "the bill does not name its build")
    files = check_truth(bill, pathlib.Path(sys.argv[2]))
    if errors or files < 5:
        sys.exit("\n".join(errors) or "the bill describes too few files")
    print(f"the bill of materials is valid: {len(bill['@graph'])} elements, {files} files")


main()
