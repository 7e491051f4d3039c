#!/usr/bin/env python3
"""Python's plistlib on the same entry lists: a yardstick for the machine the benchmarks run on.

Times only plistlib's binary writer and reader; the keyed-archive object table is built
beforehand, outside the timing."""
import plistlib
import sys
import time
from plistlib import UID


def entries(n):
    out = []
    for i in range(n):
        out.append({"Path": "Site %05d" % i, "Button": "", "websiteURL": "https://www.example%d.com/login" % i,
                    "websiteUserID": "user%d@example.com" % i, "websitePassword": "p4ss-%d-W\u00f6rd!" % (i * 7919),
                    "Notes": "Account number %d\nSecurity question: first pet\nAnswer: Rex" % i,
                    "websiteNewUserIDOptions": i % 4, "websiteUserIDTabSwitch": i % 2 == 0,
                    "websiteUserIDTabCount": i % 3, "websitePasswordTabSwitch": True,
                    "websitePasswordTabCount": 0, "websitePasswordEnter": i % 3 == 0})
    return out


def keyed(root):
    objs, classes = ["$null"], {}

    def cls(name, chain):
        if name not in classes:
            objs.append({"$classname": name, "$classes": chain})
            classes[name] = len(objs) - 1
        return classes[name]

    def enc(v):
        if isinstance(v, list):
            idx = len(objs)
            objs.append(None)
            kids = [enc(e) for e in v]
            c = cls("NSMutableArray", ["NSMutableArray", "NSArray", "NSObject"])
            objs[idx] = {"NS.objects": [UID(k) for k in kids], "$class": UID(c)}
            return idx
        if isinstance(v, dict):
            idx = len(objs)
            objs.append(None)
            ks = [enc(k) for k in v]
            vs = [enc(x) for x in v.values()]
            c = cls("NSMutableDictionary", ["NSMutableDictionary", "NSDictionary", "NSObject"])
            objs[idx] = {"NS.keys": [UID(k) for k in ks], "NS.objects": [UID(k) for k in vs], "$class": UID(c)}
            return idx
        objs.append(v)
        return len(objs) - 1

    r = enc(root)
    return {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": UID(r)}, "$objects": objs}


for n in [int(a) for a in sys.argv[1:]] or [10000]:
    table = keyed(entries(n))
    best_enc = best_dec = 1e9
    for _ in range(3):
        t0 = time.perf_counter()
        data = plistlib.dumps(table, fmt=plistlib.FMT_BINARY)
        t1 = time.perf_counter()
        plistlib.loads(data)
        t2 = time.perf_counter()
        best_enc, best_dec = min(best_enc, t1 - t0), min(best_dec, t2 - t1)
    print("plistlib entries=%d encode_ms=%.1f decode_ms=%.1f" % (n, best_enc * 1000, best_dec * 1000))
