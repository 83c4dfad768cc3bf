"""Users that send at a constant rate; when each request ended, the milliseconds that it took, and how late it was sent.

A user sends when its pause is over, and locust's own report begins to count only then: a pause that is too long because the
whole program was kept waiting is not in it. The milliseconds by which it was too long are the truth here.
"""

import os
import time

from locust import FastHttpUser, constant_throughput, events, task

RATE = float(os.environ["LOCUST_RATE_OF_USER"])
TIMES = []


class User(FastHttpUser):
    wait_time = constant_throughput(RATE)
    due = None

    @task
    def get(self):
        begin = time.monotonic()
        late = begin - (self.due or begin)
        self.due = begin + 1 / RATE
        self.client.get("/")
        end = time.monotonic()
        TIMES.append((end, 1000 * (end - begin), 1000 * late))


@events.quitting.add_listener
def write(**_):
    with open(os.environ["LOCUST_TIMES"], "w", encoding="ascii") as file:
        file.writelines(f"{end} {took} {late}\n" for end, took, late in TIMES)
