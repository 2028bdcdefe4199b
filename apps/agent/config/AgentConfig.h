// What the agent is told at its start. Plain values: the reading is in
// ConfigReader.h, the format in doc/configuration.md.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/acl/AclRules.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/net/VrfName.h"

namespace Agent {

// An own address and the length of its subnet.
struct InterfaceAddress {
   Vantu::IpGenAddr address;
   Vantu::IpGenPrefix subnet;
};

struct InterfaceConfig {
   Vantu::IntfId name;
   // The capture whose packets arrive here; the interface's own name by default.
   std::string capture;
   // The first of a family is the one that PIM uses, the others are secondary.
   std::vector<InterfaceAddress> addresses;
   uint32_t drPriority = 1;
};

// How this router would route towards an address: the RPF look-up takes the longest
// prefix.
// The path to take over at once when the main one fails.
struct BackupConfig {
   Vantu::IntfId interface;
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is on the link itself
   uint32_t preference = 1;
   uint32_t metric = 0;
};

struct RpfRouteConfig {
   Vantu::IpGenPrefix prefix;
   Vantu::IntfId interface;
   // Unspecified where the prefix is on the link itself.
   Vantu::IpGenAddr neighbor;
   uint32_t preference = 1;
   uint32_t metric = 0;
   std::optional<BackupConfig> backup = std::nullopt;
};

struct AccessListConfig {
   std::string name;
   Acl::AclRules rules;
};

struct RpConfig {
   Vantu::IpGenAddr address;
   // All multicast groups of the family where none is named.
   std::vector<Vantu::IpGenPrefix> groups;
   // The addresses by which the other routers of an anycast RP send their registers
   // (RFC 4610).
   std::vector<Vantu::IpGenAddr> anycastPeers = {};
};

// An (S,G) that this router advertises to other RPs.
struct AdvertisedConfig {
   Vantu::IpGenAddr source;
   Vantu::IpGenAddr group;
   Vantu::IpGenAddr rp;
   bool anycast = false;  // learned from an anycast-RP peer
};

// Both address families.
struct VrfConfig {
   L3::VrfName name;
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // Joins count only from neighbours that said hello (RFC 7761, 4.3.1).
   bool requireHello = true;
   // The kernel's multicast routing table that stands for this VRF; nothing: the one
   // that it looks into where no rule says otherwise, another for each family.
   std::optional<uint32_t> mrouteTable = std::nullopt;
   // Names of access lists, of each family; see SsmGroupInfo.h and FrrFilterSm.h.
   std::string ssmFilter, ssmFilter6;
   std::string frrFilter, frrFilter6;
   std::vector<AccessListConfig> accessLists;
   std::vector<InterfaceConfig> interfaces;
   std::vector<RpfRouteConfig> rpfRoutes;
   // Reverse paths come from the host's own routes, too, of this table of the kernel.
   bool kernelRpf = false;
   uint32_t routeTable = 254;
   std::vector<RpConfig> rps;
   std::vector<AdvertisedConfig> advertised;
};

struct AgentConfig {
   std::vector<VrfConfig> vrfs;
};

// Is it one of this router's addresses in the VRF?
bool isOwn( const VrfConfig& vrf, const Vantu::IpGenAddr& address );

// What is assumed without a configuration: the interface eth0 of the VRF "default"
// with that address, its subnet /24 or /64; no RP, no RPF route.
AgentConfig assumedConfig( const Vantu::IpGenAddr& router );

// The sentence in which the agent says so.
std::string assumedConfigText( const Vantu::IpGenAddr& router );

// An interface and the VRF it is of; empty: none.
struct CaptureBinding {
   L3::VrfName vrf;
   Vantu::IntfId interface;
};

// The interface to which the capture of that name is bound; the empty name stands
// for the only interface there is. Empty when there is none, or several.
CaptureBinding captureBinding( const AgentConfig& config,
                               const std::string& capture );

}
