"""Plays a PIM router downstream of the one under test, with packets of scapy's making.

usage: downstream.py INTERFACE SENDER UPSTREAM RP [WHAT SOURCE GROUP]...

Says hello on the interface, then sends one join/prune message for each WHAT (join, prune,
or prune-rpt of a source on the shared tree), in order; SOURCE "*" means the group's shared
tree, by the RP.
"""

import sys

from scapy.config import conf
from scapy.contrib.pim import (PIMv2GroupAddrs, PIMv2Hdr, PIMv2Hello,
                               PIMv2HelloDRPriority, PIMv2HelloGenerationID,
                               PIMv2HelloHoldtime, PIMv2JoinAddrs, PIMv2JoinPrune,
                               PIMv2PruneAddrs)
from scapy.layers.inet import IP
from scapy.layers.l2 import Ether
from scapy.sendrecv import sendp

PIM = 103
conf.verb = 0


def hello():
    return PIMv2Hdr(type=0) / PIMv2Hello(option=[
        PIMv2HelloHoldtime(holdtime=105), PIMv2HelloDRPriority(dr_priority=0),
        PIMv2HelloGenerationID(generation_id=7)])


def join_prune(upstream, rp, what, source, group):
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


def send(interface, sender, payload):
    header = IP(src=sender, dst="224.0.0.13", ttl=1, proto=PIM)
    sendp(Ether(dst="01:00:5e:00:00:0d") / header / payload, iface=interface)


def main(interface, sender, upstream, rp, *rest):
    send(interface, sender, hello())
    for what, source, group in zip(*[iter(rest)] * 3):
        send(interface, sender, join_prune(upstream, rp, what, source, group))


if __name__ == "__main__":
    main(*sys.argv[1:])
