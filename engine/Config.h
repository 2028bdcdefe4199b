// The engines' configuration of a VRF. Plain values: the caller reads them from any
// source.
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

   bool operator==( const InterfaceAddress& ) const = default;
};

// The names of access lists of the VRF, one a family; empty: none.
struct FamilyLists {
   std::string ipv4, ipv6;

   bool operator==( const FamilyLists& ) const = default;
};

// A group, or one source of it, that hosts on a link get without asking.
struct StaticGroupConfig {
   Vantu::IpGenAddr group;
   Vantu::IpGenAddr source;  // unspecified: all

   bool operator==( const StaticGroupConfig& ) const = default;
};

// Of IGMP or MLD on a link (RFC 3376, 8; RFC 3810, 9). Times in seconds.
struct MembershipConfig {
   uint8_t version = 3;  // of queries; 2 stands for MLDv1, 3 for MLDv2
   double queryInterval = 125.0;
   double queryResponse = 10.0;
   uint8_t robustness = 2;
   double lastMemberQuery = 1.0;
   uint8_t lastMemberCount = 0;  // 0: the robustness
   // A leave ends a membership at once: the link has one host.
   bool immediateLeave = false;
   uint32_t groupLimit = 10000;  // groups with members
   // The access list of the groups, and sources, that hosts may ask for; empty: all.
   std::string accessGroup = {};
   std::vector<StaticGroupConfig> staticGroups = {};
   bool operator==( const MembershipConfig& ) const = default;
};

struct InterfaceConfig {
   Vantu::IntfId name;
   // The first address of a family is the one that PIM uses, the others are
   // secondary.
   std::vector<InterfaceAddress> addresses;
   uint32_t drPriority = 1;
   // What a sending router tells its neighbours, and when (RFC 7761, 4.11). Times in
   // seconds.
   uint16_t helloInterval = 30;
   uint16_t helloHoldtime = 105;
   uint16_t propagationDelay = 500;   // ms
   uint16_t overrideInterval = 2500;  // ms
   // False: every join is sent, though another router has just sent the same.
   bool joinSuppression = true;
   uint16_t joinPruneInterval = 60;
   uint32_t mtu = 1500;  // bytes of an IP packet
   // Hosts only: no PIM message is sent or taken, and this router is the DR.
   bool passive = false;
   // The routers that are heard, by the rules' sources; the groups that they may join;
   // the groups that neither join nor flow here.
   FamilyLists neighborFilter = {}, joinPruneFilter = {}, boundary = {};
   MembershipConfig igmp = {};
   MembershipConfig mld = {};

   // False: it is no link at present; its addresses stay this router's own.
   bool up = true;
   // False: nothing arrives by it at present. Its states stay.
   bool carrier = true;
   // True: the two above are the host's state, not assumed.
   bool observed = false;
   // The host's number of it; 0: not known. One with another number is another link.
   uint32_t index = 0;
   bool operator==( const InterfaceConfig& ) const = default;
};

// The path that takes over at once when the main one fails.
struct BackupConfig {
   Vantu::IntfId interface;
   Vantu::IpGenAddr neighbor;  // unspecified: the prefix is directly connected
   uint32_t preference = 1;
   uint32_t metric = 0;

   bool operator==( const BackupConfig& ) const = default;
};

// This router's path towards a prefix: the RPF look-up takes the longest match.
struct RpfRouteConfig {
   Vantu::IpGenPrefix prefix;
   Vantu::IntfId interface;
   // Unspecified when the prefix is directly connected.
   Vantu::IpGenAddr neighbor;
   uint32_t preference = 1;
   uint32_t metric = 0;
   std::optional<BackupConfig> backup = std::nullopt;

   bool operator==( const RpfRouteConfig& ) const = default;
};

struct AccessListConfig {
   std::string name;
   Acl::AclRules rules;

   bool operator==( const AccessListConfig& ) const = default;
};

struct RpConfig {
   Vantu::IpGenAddr address;
   // Empty: all multicast groups of the family.
   std::vector<Vantu::IpGenPrefix> groups;

   bool operator==( const RpConfig& ) const = default;
};

// This router is one of several with the same RP address (RFC 4610). They tell each other
// of their sources, by addresses of their own.
struct AnycastRpConfig {
   Vantu::IpGenAddr address;  // the RP's
   Vantu::IpGenAddr local;    // this router's
   std::vector<Vantu::IpGenAddr> peers;

   PIMSM_API bool has( const Vantu::IpGenAddr& peer ) const;
   bool operator==( const AnycastRpConfig& ) const = default;
};

// An (S,G) that this router advertises to other RPs.
struct AdvertisedConfig {
   Vantu::IpGenAddr source;
   Vantu::IpGenAddr group;
   Vantu::IpGenAddr rp;
   bool anycast = false;  // learned from an anycast-RP peer

   bool operator==( const AdvertisedConfig& ) const = default;
};

// The rate of a source's packets, IP headers included, above which a router with members
// leaves the shared tree (RFC 7761, 4.2.1).
struct SptThreshold {
   double rate = 0.0;        // kbit/s; 0: at the first packet, infinity: never
   std::string groups = {};  // an access list; empty: all groups

   bool operator==( const SptThreshold& ) const = default;
};

// Both address families.
struct VrfConfig {
   L3::VrfName name;
   // When true, joins count only from neighbours that sent a hello (RFC 7761,
   // 4.3.1).
   bool requireHello = true;
   // When members' routers leave the shared tree: by the first entry that has the
   // group; at the first packet where none has.
   std::vector<SptThreshold> sptThresholds = {};
   // Groups whose address names their RP (RFC 3956) are taken. False: they are refused.
   bool embeddedRp = true;
   double keepalivePeriod = 210.0;  // of a source; s
   double assertTime = 180.0;       // s; the loser of an assert waits so long
   // Of registers (RFC 7761, 4.4 and 4.11). Times in seconds.
   Vantu::IntfId registerSource =
      {};  // its address sends them; empty: the source's link
   double registerSuppressionTime = 60.0;
   double registerProbeTime = 5.0;
   uint32_t registerRateLimit = 0;  // packets a second of this router; 0: no limit
   FamilyLists registerFilter =
      {};  // (S,G) that may be registered with this router
   // RP_Keepalive_Period: longer than a router is silent between two probes.
   double rpKeepalivePeriod() const {
      return 3 * registerSuppressionTime + registerProbeTime;
   }
   // The names of access lists, one a family; see SsmGroupInfo.h and FrrFilterSm.h.
   std::string ssmFilter, ssmFilter6;
   std::string frrFilter, frrFilter6;
   std::vector<AccessListConfig> accessLists;
   std::vector<InterfaceConfig> interfaces;
   std::vector<RpfRouteConfig> rpfRoutes;
   std::vector<RpConfig> rps;
   std::vector<AnycastRpConfig> anycastRps;  // one an RP
   std::vector<AdvertisedConfig> advertised;

   bool operator==( const VrfConfig& ) const = default;
};

// The interface's first address of the family that routers beyond the link can reach, or
// else another interface's; the unspecified one without any.
PIMSM_API Vantu::IpGenAddr globalAddress( const VrfConfig& vrf,
                                          Vantu::IntfId intfId,
                                          Vantu::AddressFamily family );

// The address that registers of a source on that interface come from.
PIMSM_API Vantu::IpGenAddr registerSource( const VrfConfig& vrf,
                                           Vantu::IntfId intfId,
                                           Vantu::AddressFamily family );

// Is it one of this router's addresses in the VRF?
PIMSM_API bool isOwn( const VrfConfig& vrf, const Vantu::IpGenAddr& address );

// The set of routers that have the RP's address; null where it is one router's alone.
PIMSM_API const AnycastRpConfig* anycastRp( const VrfConfig& vrf,
                                            const Vantu::IpGenAddr& rp );

}
