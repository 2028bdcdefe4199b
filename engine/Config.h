// What the engines are told of a VRF. Plain values: who fills them reads them from
// wherever he likes.
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

namespace Router {

// An own address and the length of its subnet.
struct InterfaceAddress {
   Vantu::IpGenAddr address;
   Vantu::IpGenPrefix subnet;
};

struct InterfaceConfig {
   Vantu::IntfId name;
   // The first of a family is the one that PIM uses, the others are secondary.
   std::vector<InterfaceAddress> addresses;
   uint32_t drPriority = 1;
};

// The path to take over at once when the main one fails.
struct BackupConfig {
   Vantu::IntfId interface;
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is on the link itself
   uint32_t preference = 1;
   uint32_t metric = 0;
};

// How this router would route towards an address: the RPF look-up takes the longest
// prefix.
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
   // Joins count only from neighbours that said hello (RFC 7761, 4.3.1).
   bool requireHello = true;
   // Names of access lists, of each family; see SsmGroupInfo.h and FrrFilterSm.h.
   std::string ssmFilter, ssmFilter6;
   std::string frrFilter, frrFilter6;
   std::vector<AccessListConfig> accessLists;
   std::vector<InterfaceConfig> interfaces;
   std::vector<RpfRouteConfig> rpfRoutes;
   std::vector<RpConfig> rps;
   std::vector<AdvertisedConfig> advertised;
};

// Is it one of this router's addresses in the VRF?
PIMSM_API bool isOwn( const VrfConfig& vrf, const Vantu::IpGenAddr& address );

}
