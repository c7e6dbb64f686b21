#!/usr/bin/env python3
"""validate_bill.py BILL PREFIX: whether a software bill of materials is SPDX, by the schema that SPDX
publishes for version 3.0.1, and whether it is true of the files that are unpacked in PREFIX.

The schema is data/spdx-export.schema.json of the npm package @cyclonedx/cdxgen 12.8.4 (Apache-2.0),
which hands it on unchanged."""
import hashlib
import json
import pathlib
import sys

import jsonschema

here = pathlib.Path(__file__).parent
bill = json.loads(pathlib.Path(sys.argv[1]).read_text())
prefix = pathlib.Path(sys.argv[2])

schema = json.loads((here / "spdx-3.0.1.schema.json").read_text())
errors = [error.message for error in jsonschema.Draft202012Validator(schema).iter_errors(bill)]

elements = [element for element in bill["@graph"] if "spdxId" in element]
known = {element["spdxId"] for element in elements}
packages = [element for element in elements if element["type"] == "software_Package"]
for element in elements:
    for other in element.get("to", []) + element.get("element", []):
        if other not in known and other != "expandedlicensing_NoAssertionLicense":
            errors.append(f"{element['spdxId']} names {other}, which is not there")

handed_on = {}
for package in packages:
    for checksum in package.get("verifiedUsing", []):
        file = prefix / package["comment"]
        handed_on[file.name] = package["name"]
        if hashlib.sha256(file.read_bytes()).hexdigest() != checksum["hashValue"]:
            errors.append(f"{file} has another checksum")
for package in packages:
    if not package.get("software_packageVersion"):
        errors.append(f"{package['name']} has no version")
for dll in prefix.glob("bin/*.dll"):
    if dll.name not in handed_on:
        errors.append(f"{dll} is not in the bill")

for error in errors:
    print(error)
print(f"{len(packages)} packages, {len(handed_on)} files, {len(errors)} errors")
sys.exit(1 if errors or len(packages) < 4 else 0)
