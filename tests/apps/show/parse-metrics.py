"""Reads metrics with another program's parser and prints what it makes of them.

usage: parse-metrics.py [FILE]   (status 77: no parser here)
"""
import sys

try:
    from prometheus_client.parser import text_string_to_metric_families
except ImportError:
    sys.exit(77)

if len(sys.argv) > 1:
    seen = set()
    for family in text_string_to_metric_families(open(sys.argv[1]).read()):
        buckets = {}
        for sample in family.samples:
            labels = dict(sample.labels)
            key = (sample.name, tuple(sorted(labels.items())))
            assert key not in seen, key
            seen.add(key)
            assert not {"group", "source"} & set(labels), labels
            if sample.name.endswith("_bucket"):
                labels.pop("le")
                row = buckets.setdefault(tuple(sorted(labels.items())), [0])
                assert sample.value >= row[-1], key
                row.append(sample.value)
            if sample.name.endswith("_count"):
                assert buckets[tuple(sorted(labels.items()))][-1] == sample.value
        print(family.type, family.name, len(family.samples))
