"""Says where a room reaches into another: rooms.py [ROOT]. Each room of the system lists the headers of others that it
may include; whatever else another room has is its own. Says also where headers include each other in a circle, and
where a goto stands."""
import fnmatch
import os
import re
import sys

FRAMEWORK = ["qxgss/qxgss.h", "qxgss/gssp.h", "qxgss/gsspasn.h", "qxgss/operations.h", "qxgss/qxatlogon.h",
             "qxgss/qxgss_*.h", "qxgss/codes.h"]
LOGON = ["qxat/qxatldapauthorize.h"]
TOKENS = ["gssp2qxnego/token_format.h", "gssp2qxnego/words.h"]
CODES = ["qxgss/qxgss_codes.def", "gssp2qxnego/qxnego_codes.def"]
ROOMS = {
    "common": FRAMEWORK + CODES,
    "qxgss": ["common/*"],
    "qxat": ["common/*"] + FRAMEWORK,
    "gssp2qxnego": ["common/*"] + FRAMEWORK + LOGON + CODES,
    "mechanisms/scram": ["common/*", "mechanisms/exposure.h"] + FRAMEWORK + LOGON,
    "mechanisms/hostgss": ["common/*", "mechanisms/exposure.h"] + FRAMEWORK + LOGON,
    "session": ["common/*"] + FRAMEWORK + TOKENS,
    "bridge": ["common/*", "session/*"] + FRAMEWORK + LOGON + TOKENS,
    "tools": ["common/*", "session/qxgss_session.h", "session/qxgss_log.h"] + FRAMEWORK + LOGON + TOKENS + CODES,
}


def sources(root, room):
    for folder, _, names in os.walk(os.path.join(root, room)):
        for name in names:
            if name.endswith((".h", ".cpp", ".c", ".inc")):
                path = os.path.join(folder, name)
                with open(path, encoding="utf-8") as file:
                    yield os.path.relpath(path, root), file.read()


def circle(includes, path, trail=()):
    if path in trail:
        return trail[trail.index(path):] + (path,)
    return next(filter(None, (circle(includes, next_one, trail + (path,)) for next_one in includes.get(path, ()))), None)


def main(root):
    faults, includes = [], {}
    for room, doors in ROOMS.items():
        for path, text in sources(root, room):
            includes[path] = re.findall(r'^#include "([^"]*/[^"]*)"', text, re.M)
            faults += ["%s includes %s" % (path, other) for other in includes[path]
                       if not other.startswith(room + "/") and not any(fnmatch.fnmatch(other, d) for d in doors)]
            faults += ["%s has a goto" % path for _ in re.findall(r"^\s*goto\s", text, re.M)]
    faults += [" includes ".join(found) for found in filter(None, (circle(includes, path) for path in includes))]
    print("\n".join(faults) or "%d files, each in its room" % len(includes))
    return bool(faults)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1] if len(sys.argv) > 1 else os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
