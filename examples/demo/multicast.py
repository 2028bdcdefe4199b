"""A host of the demonstration.

usage: multicast.py send RATE SECONDS INTERFACE GROUP...
       multicast.py receive SECONDS INTERFACE GROUP[@SOURCE]...
       multicast.py hear SECONDS ROUTER=INTERFACE...

Packets carry a number; a receiver says which came and which did not. "hear" says what PIM
messages came from the router on that interface.
"""

import array
import fcntl
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


def compute_checksums(s, interface):
    """A host leaves them to its device, and inside a register there is none."""
    siocethtool, ethtool_stxcsum = 0x8946, 0x17
    value = array.array("I", [ethtool_stxcsum, 0])
    fcntl.ioctl(s, siocethtool,
                struct.pack("16sQ16x", interface.encode(), value.buffer_info()[0]))


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
    compute_checksums(sockets[0][0], interface)
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


def pim_message(packet):
    """The family and PIM message of an IP packet, or nothing."""
    if packet[0] >> 4 == 4 and packet[9] == 103:
        return "IPv4", packet[4 * (packet[0] & 15):]
    if packet[0] >> 4 == 6 and packet[6] == 103:
        return "IPv6", packet[40:]
    return None, b""


def generation(hello):
    """Option 20 of RFC 7761, 4.9.2."""
    at = 4
    while at + 4 <= len(hello):
        kind, length = struct.unpack_from("!HH", hello, at)
        if kind == 20:
            return hello[at + 4:at + 4 + length]
        at += 4 + length
    return None


def hear(seconds, *places):
    names = {3: "join/prunes", 5: "asserts"}
    heard = {}
    for place in places:
        router, _, interface = place.partition("=")
        s = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, socket.htons(3))
        s.bind((interface, 3))
        heard[s] = (router, {"hellos": 0, "join/prunes": 0, "asserts": 0}, {})
    end = time.monotonic() + float(seconds)
    while True:
        ready, _, _ = select.select(list(heard), [], [], max(0.0, end - time.monotonic()))
        if not ready:
            break
        for s in ready:
            packet, (_, _, kind, _, _) = s.recvfrom(2048)
            family, message = pim_message(packet)
            if kind == socket.PACKET_OUTGOING or not message:
                continue
            router, counts, ids = heard[s]
            if message[0] & 15 == 0:
                counts["hellos"] += 1
                ids.setdefault(family, set()).add(generation(message))
            elif message[0] & 15 in names:
                counts[names[message[0] & 15]] += 1
    for router, counts, ids in heard.values():
        same = all(len(each) == 1 for each in ids.values())
        print(f"{router}  {counts['hellos']} hellos, generation ids "
              f"{'unchanged' if same else 'changed'}; {counts['join/prunes']} join/prunes, "
              f"{counts['asserts']} asserts")


if __name__ == "__main__":
    {"send": send, "receive": receive, "hear": hear}[sys.argv[1]](*sys.argv[2:])
