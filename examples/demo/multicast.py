"""A host of the demonstration.

usage: multicast.py send RATE SECONDS INTERFACE GROUP...
       multicast.py receive SECONDS INTERFACE GROUP[@SOURCE]...

Packets carry a number; a receiver says which came and which did not.
"""

import select
import socket
import struct
import sys
import time

PORT = 5000
MCAST_JOIN_GROUP, MCAST_JOIN_SOURCE_GROUP = 42, 46


def family_of(address):
    return socket.AF_INET6 if ":" in address else socket.AF_INET


def level_of(address):
    return socket.IPPROTO_IPV6 if ":" in address else socket.IPPROTO_IP


def storage(address):
    """The address as the kernel's sockaddr_storage."""
    packed = socket.inet_pton(family_of(address), address)
    if ":" in address:
        out = struct.pack("=HHI16sI", socket.AF_INET6, 0, 0, packed, 0)
    else:
        out = struct.pack("=HH4s", socket.AF_INET, 0, packed)
    return out.ljust(128, b"\0")


def send(rate, seconds, interface, *groups):
    index = socket.if_nametoindex(interface)
    sockets = []
    for group in groups:
        s = socket.socket(family_of(group), socket.SOCK_DGRAM)
        if ":" in group:
            s.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_HOPS, 8)
            s.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_MULTICAST_IF, index)
        else:
            s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 8)
            s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF,
                         struct.pack("4s4si", b"\0" * 4, b"\0" * 4, index))
        sockets.append((s, group))
    start = time.monotonic()
    for number in range(int(float(rate) * float(seconds))):
        time.sleep(max(0.0, start + number / float(rate) - time.monotonic()))
        for s, group in sockets:
            s.sendto(struct.pack("!I", number), (group, PORT))


def receive(seconds, interface, *wanted):
    index = socket.if_nametoindex(interface)
    numbers = {}
    for each in wanted:
        group, _, source = each.partition("@")
        s = socket.socket(family_of(group), socket.SOCK_DGRAM)
        s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        s.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        s.bind((group, PORT))
        request = struct.pack("=I4x", index) + storage(group)
        if source:
            s.setsockopt(level_of(group), MCAST_JOIN_SOURCE_GROUP,
                         request + storage(source))
        else:
            s.setsockopt(level_of(group), MCAST_JOIN_GROUP, request)
        numbers[s] = (each, [])
    end = time.monotonic() + float(seconds)
    while True:
        ready, _, _ = select.select(list(numbers), [], [], max(0.0, end - time.monotonic()))
        if not ready:
            break
        for s in ready:
            numbers[s][1].append(struct.unpack("!I", s.recv(64)[:4])[0])
    for name, got in numbers.values():
        if not got:
            print(f"{name:28} nothing")
            continue
        span = max(got) - min(got) + 1
        print(f"{name:28} {len(got):5} packets, {span - len(set(got))} lost, "
              f"{len(got) - len(set(got))} doubled")


if __name__ == "__main__":
    {"send": send, "receive": receive}[sys.argv[1]](*sys.argv[2:])
