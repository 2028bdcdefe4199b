"""Plays a PIM router downstream of the one under test, with packets of scapy's making.

usage: downstream.py INTERFACE SENDER UPSTREAM RP [WHAT SOURCE GROUP]...

Says hello on the interface, then sends one join/prune message for each WHAT (join, prune,
or prune-rpt of a source on the shared tree), in order; SOURCE "*" means the group's shared
tree, by the RP.
"""

import ipaddress
import struct
import sys

from scapy.config import conf
from scapy.contrib.pim import (PIMv2GroupAddrs, PIMv2Hdr, PIMv2Hello,
                               PIMv2HelloDRPriority, PIMv2HelloGenerationID,
                               PIMv2HelloHoldtime, PIMv2JoinAddrs, PIMv2JoinPrune,
                               PIMv2PruneAddrs)
from scapy.layers.inet import IP
from scapy.layers.inet6 import IPv6, in6_chksum
from scapy.layers.l2 import Ether
from scapy.packet import Raw
from scapy.sendrecv import sendp

PIM = 103
conf.verb = 0


def hello4():
    return PIMv2Hdr(type=0) / PIMv2Hello(option=[
        PIMv2HelloHoldtime(holdtime=105), PIMv2HelloDRPriority(dr_priority=0),
        PIMv2HelloGenerationID(generation_id=7)])


def join_prune4(upstream, rp, what, source, group):
    shared = source == "*"
    flags = dict(sparse=1, wildcard=int(shared), rpt=int(shared or what == "prune-rpt"),
                 mask_len=32)
    address = rp if shared else source
    entry = PIMv2GroupAddrs(gaddr=group, mask_len=32)
    if what == "join":
        entry.join_ips = [PIMv2JoinAddrs(src_ip=address, **flags)]
    else:
        entry.prune_ips = [PIMv2PruneAddrs(src_ip=address, **flags)]
    return PIMv2Hdr(type=3) / PIMv2JoinPrune(up_neighbor_ip=upstream, holdtime=210,
                                             jp_ips=[entry])


def packed(address):
    return ipaddress.ip_address(address).packed


def hello6():
    return b"\x20\0\0\0" + struct.pack("!HHHHHIHHI", 1, 2, 105, 19, 4, 0, 20, 4, 7)


# scapy's PIM layer knows IPv4 addresses only.
def join_prune6(upstream, rp, what, source, group):
    shared = source == "*"
    out = b"\x23\0\0\0" + b"\2\0" + packed(upstream) + struct.pack("!BBH", 0, 1, 210)
    joins = 1 if what == "join" else 0
    out += b"\2\0\0\x80" + packed(group) + struct.pack("!HH", joins, 1 - joins)
    flags = 7 if shared else 5 if what == "prune-rpt" else 4
    return out + bytes([2, 0, flags, 128]) + packed(rp if shared else source)


def send(interface, sender, payload):
    if ":" in sender:
        header = IPv6(src=sender, dst="ff02::d", hlim=1, nh=PIM)
        checksum = in6_chksum(PIM, header, payload)
        payload = payload[:2] + struct.pack("!H", checksum) + payload[4:]
        frame = Ether(dst="33:33:00:00:00:0d") / header / Raw(payload)
    else:
        header = IP(src=sender, dst="224.0.0.13", ttl=1, proto=PIM)
        frame = Ether(dst="01:00:5e:00:00:0d") / header / payload
    sendp(frame, iface=interface)


def main(interface, sender, upstream, rp, *rest):
    ipv6 = ":" in sender
    send(interface, sender, hello6() if ipv6 else hello4())
    join_prune = join_prune6 if ipv6 else join_prune4
    for what, source, group in zip(*[iter(rest)] * 3):
        send(interface, sender, join_prune(upstream, rp, what, source, group))


if __name__ == "__main__":
    main(*sys.argv[1:])
