#!/usr/bin/python3
"""Writes what a package is made of: which libraries it is linked to and what was compiled into it, with their licences.

sbom.py PACKAGE, for a package that stands in debian/PACKAGE: SPDX 2.3, as JSON, beside its copyright. A library whose licence is
not told here ends the build.
"""

import json
import os
import pathlib
import subprocess
import sys
import time
from urllib.parse import quote

LICENCES = {
    "libboost-json1.81.0": "BSL-1.0",
    "libboost1.81-dev": "BSL-1.0",
    "libc6": "LGPL-2.1-or-later",
    "libcli11-dev": "BSD-3-Clause",
    "libedit2": "BSD-3-Clause",
    "libgcc-s1": "GPL-3.0-or-later WITH GCC-exception-3.1",
    "libre2-9": "BSD-3-Clause",
    "libsecret-1-0": "LGPL-2.1-or-later",
    "libssl3": "Apache-2.0",
    "libstdc++6": "GPL-3.0-or-later WITH GCC-exception-3.1",
    "zlib1g": "Zlib",
}
# By the package's name without the number of its soname.
COMPILED_IN = {  # headers and static libraries
    "kvpim-tools": ["libboost1.81-dev", "libcli11-dev"],
    "libkvpim": ["libboost1.81-dev"],
    "libkvpim-c": ["libboost1.81-dev"],
    "libkvpim-dev": ["libboost1.81-dev"],
}
LOADED = {"python3-kvpim": ["libkvpim-c1"]}
LOADED_IF_THERE = {"libkvpim": ["libsecret-1-0"]}


def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def linked(package: str) -> list[str]:
    """What dpkg-shlibdeps found: the packages of the shared libraries that its programs and libraries name, without itself."""
    found = pathlib.Path("debian", f"{package}.substvars")
    lines = found.read_text().splitlines() if found.exists() else []
    depends = [one.split()[0] for line in lines if line.startswith("shlibs:Depends=") for one in line.split("=", 1)[1].split(", ")]
    return [one for one in depends if one != package]


def entry(name: str) -> dict:
    own = pathlib.Path("debian", name).is_dir()
    version = os.environ["DEB_VERSION"] if own else output("dpkg-query", "-W", "-f", "${Version}\n", name).split()[0]
    licence = "MIT" if own else LICENCES[name]
    return {
        "SPDXID": f"SPDXRef-{name}".replace("+", "-"),
        "name": name,
        "versionInfo": version,
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": licence,
        "licenseDeclared": licence,
        "copyrightText": "2026 The Kv PIM authors" if own else "NOASSERTION",
        "externalRefs": [{
            "referenceCategory": "PACKAGE-MANAGER",
            "referenceType": "purl",
            "referenceLocator": f"pkg:deb/{'kvpim' if own else 'debian'}/{quote(name)}@{quote(version, ':')}",
        }],
    }


def document(package: str) -> dict:
    version, name = os.environ["DEB_VERSION"], package.rstrip("0123456789")
    parts = {"DYNAMIC_LINK": linked(package),
             "STATIC_LINK": COMPILED_IN.get(name, []),
             "RUNTIME_DEPENDENCY_OF": LOADED.get(name, []),
             "OPTIONAL_DEPENDENCY_OF": LOADED_IF_THERE.get(name, [])}
    this = entry(package)
    packages = [this]
    relationships = [("SPDXRef-DOCUMENT", "DESCRIBES", this["SPDXID"])]
    for kind, names in parts.items():
        for other in map(entry, names):
            packages.append(other)
            pair = (this["SPDXID"], other["SPDXID"])
            first, second = reversed(pair) if kind.endswith("_OF") else pair
            relationships.append((first, kind, second))
    created = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"])))
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{package}-{version}",
        "documentNamespace": f"https://kvpim.example/spdx/{package}-{version}",
        "creationInfo": {"created": created, "creators": ["Organization: The Kv PIM authors"]},
        "packages": packages,
        "relationships": [
            {"spdxElementId": first, "relationshipType": kind, "relatedSpdxElement": second}
            for first, kind, second in relationships
        ],
    }


for package in sys.argv[1:]:
    folder = pathlib.Path("debian", package, "usr/share/doc", package)
    folder.mkdir(parents=True, exist_ok=True)
    try:
        text = json.dumps(document(package), indent=1) + "\n"
    except KeyError as name:
        sys.exit(f"debian/sbom.py tells no licence of {name}, which {package} is linked to.")
    (folder / f"{package}.spdx.json").write_text(text)
