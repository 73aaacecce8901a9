"""Publishes a device's position: to_mqtt.py LOCATOR BROKER[:PORT] TOPIC [COUNT]

Needs paho-mqtt (Debian: python3-paho-mqtt). New subscribers get the last value at once. Without a count it ends with Ctrl-C.
"""

import itertools
import sys
import time

import paho.mqtt.client as mqtt

import quorvio

PERIOD = 0.1  # seconds between two values


def main(locator: str, broker: str, topic: str, count: str = "") -> None:
    host, _, port = broker.partition(":")
    client = mqtt.Client()
    client.connect(host, int(port or 1883))
    client.loop_start()
    with quorvio.open(locator, baudrate=115200) as device:
        for _ in range(int(count)) if count else itertools.count():
            value = device.query(b"POS?\n").strip()
            client.publish(topic, value, qos=1, retain=True).wait_for_publish()
            time.sleep(PERIOD)
    client.disconnect()
    client.loop_stop()


if __name__ == "__main__":
    try:
        main(*sys.argv[1:])
    except KeyboardInterrupt:
        pass
