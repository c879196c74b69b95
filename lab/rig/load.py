"""Reports of thousands of listeners, by the load generator of bench/live."""

import json
import subprocess


class Load:
    def __init__(self, namespace, generator, interfaces):
        self.namespace = namespace
        self._start = ["taskset", "-c", "0", generator, "load", *interfaces]

    def start(self, *options):
        return self.namespace.start([*self._start, *map(str, options)], stdout=subprocess.PIPE,
                                    text=True)

    def run(self, *options):
        """{"sent": frames, "seconds": ...}"""
        return self.result(self.start(*options))

    @staticmethod
    def result(process):
        return json.loads(process.communicate()[0])
