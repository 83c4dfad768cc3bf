#!/usr/bin/python3
"""What one would write with psutil: processor time and memory of all processes and of the machine, once a second.

psutil_sampler.py SAMPLES    takes one more, to compare the first one with
"""
import sys
import time

import psutil

FIGURES = ["pid", "name", "cpu_percent", "memory_info"]


def print_sample():
    print(psutil.cpu_percent(), psutil.virtual_memory().available, psutil.swap_memory().used)
    for process in psutil.process_iter(FIGURES):
        print(process.info)


print_sample()
for _ in range(int(sys.argv[1])):
    time.sleep(1)
    print_sample()
