"""Users that send at a constant rate; when each request ended, and the milliseconds that it took."""

import os
import time

from locust import FastHttpUser, constant_throughput, events, task

RATE = float(os.environ["LOCUST_RATE_OF_USER"])
TIMES = []


class User(FastHttpUser):
    wait_time = constant_throughput(RATE)

    @task
    def get(self):
        self.client.get("/")


@events.request.add_listener
def note(response_time, **_):
    TIMES.append((time.monotonic(), response_time))


@events.quitting.add_listener
def write(**_):
    with open(os.environ["LOCUST_TIMES"], "w", encoding="ascii") as file:
        file.writelines(f"{end} {took}\n" for end, took in TIMES)
