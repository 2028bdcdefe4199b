// The records that the agent publishes about itself.
#pragma once

#include "platform/acl/AclRules.h"
#include "platform/pim/FlatForms.h"
#include "published/Text.h"

namespace Published {

// clang-format off
#define PUBLISHED_LINK_STATES( V ) \
   V( linkUnknown ) V( linkUp )    \
   V( linkDown )    /* or without the address that it should have */ \
   V( linkWithoutCarrier )

#define PUBLISHED_INTERFACE( FIELD ) \
   FIELD( Vantu::IntfId,    key,          {} ) \
   FIELD( Vantu::IpGenAddr, address,      {} ) /* primary, of the family */ \
   FIELD( uint8_t,          prefixLength, 0 ) \
   FIELD( bool,             iAmDr,        false ) \
   FIELD( uint32_t,         neighbors,    0 ) /* PIM neighbours */ \
   FIELD( Vantu::IpGenAddr, dr,           {} ) \
   FIELD( bool,             speaks,       false ) /* the router sends there; else 0 below */ \
   FIELD( uint32_t,         generationId, 0 ) \
   FIELD( double,           nextHello,    0.0 ) \
   FIELD( Vantu::IpGenAddr, querier,      {} ) /* of hosts */ \
   FIELD( double,           otherQuerierUntil, 0.0 ) /* 0: it is this router */ \
   FIELD( double,           nextQuery,    0.0 ) \
   FIELD( uint32_t,         startupQueries, 0 ) /* still to be sent at start-up */ \
   FIELD( Published::LinkState, link,     linkUnknown ) /* down: all else is configuration */

#define PUBLISHED_OWN_ADDRESS_KEY( FIELD ) \
   FIELD( Vantu::IntfId,    intfId,  {} ) \
   FIELD( Vantu::IpGenAddr, address, {} ) \
   FIELD( uint32_t,         unused,  0 ) /* keys are of whole 8 bytes */

// An own address, primary or secondary, and its subnet.
#define PUBLISHED_OWN_ADDRESS( FIELD ) \
   FIELD( Published::OwnAddressKey, key,    {} ) \
   FIELD( Vantu::IpGenPrefix,             subnet, {} )

#define PUBLISHED_NEIGHBOR_KEY( FIELD ) \
   FIELD( Vantu::IntfId,    intfId,  {} ) \
   FIELD( Vantu::IpGenAddr, address, {} ) \
   FIELD( uint32_t,         unused,  0 ) /* keys are of whole 8 bytes */

// The content of a neighbour's last hello; a missing option has the value zero.
#define PUBLISHED_NEIGHBOR( FIELD ) \
   FIELD( Published::NeighborKey, key,              {} ) \
   FIELD( bool,                   hasDrPriority,    false ) \
   FIELD( uint32_t,               drPriority,       0 ) \
   FIELD( bool,                   hasGenerationId,  false ) \
   FIELD( uint32_t,               generationId,     0 ) \
   FIELD( bool,                   hasLanPruneDelay, false ) \
   FIELD( uint32_t,               propagationDelay, 0 ) /* ms */ \
   FIELD( uint32_t,               overrideInterval, 0 ) /* ms */ \
   FIELD( bool,                   trackingSupport,  false ) \
   FIELD( uint32_t,               holdtime,         0 ) /* s; 65535: for ever */ \
   FIELD( double,                 until,            0.0 ) /* 0: not known */ \
   FIELD( double,                 lastJoins,        0.0 ) /* periodic ones sent to it; 0: none */ \
   FIELD( double,                 since,            0.0 ) /* it is a neighbour; 0: not known */

#define PUBLISHED_NEIGHBOR_ADDRESS_KEY( FIELD ) \
   FIELD( Vantu::IntfId,    intfId,   {} ) \
   FIELD( Vantu::IpGenAddr, neighbor, {} ) /* its primary address */ \
   FIELD( Vantu::IpGenAddr, address,  {} )

// A secondary address that a neighbour told.
#define PUBLISHED_NEIGHBOR_ADDRESS( FIELD ) \
   FIELD( Published::NeighborAddressKey, key, {} )

// The timers of an interface of a route, for the next agent. 0: not running.
#define PUBLISHED_DOWNSTREAM( FIELD ) \
   FIELD( Routing::Pim::RouteIntfKey, key,               {} ) \
   FIELD( double,                     joinHoldtime,      0.0 ) /* s from lastJoinReceived on */ \
   FIELD( double,                     rptHoldtime,       0.0 ) /* s from lastRptPruneReceived on */ \
   FIELD( double,                     prunePendingUntil, 0.0 ) \
   FIELD( double,                     rptPendingUntil,   0.0 ) \
   FIELD( double,                     assertUntil,       0.0 ) \
   FIELD( double,                     memberUntil,       0.0 ) /* of members asked whether they left */ \
   FIELD( uint32_t,                   memberVersion,     0 ) /* of the oldest host; 0: 3 */

// A source on this router's link whose registers its RP has stopped, for the next agent.
#define PUBLISHED_REGISTERING( FIELD ) \
   FIELD( Routing::Pim::RouteKey, key,     {} ) \
   FIELD( bool,                   probing, false ) /* the RP has been asked anew */ \
   FIELD( double,                 until,   0.0 ) /* when that time is over */

#define PUBLISHED_RP_KEY( FIELD ) \
   FIELD( Vantu::IpGenAddr, group,  {} ) \
   FIELD( uint32_t,         length, 0 )

#define PUBLISHED_RP( FIELD ) \
   FIELD( Published::RpKey, key,     {} ) /* the group range */ \
   FIELD( Vantu::IpGenAddr, address, {} ) \
   FIELD( bool,             own,     false ) /* it is this router */

#define PUBLISHED_ACCESS_RULE_KEY( FIELD ) \
   FIELD( Published::Text<224>, list,     {} ) \
   FIELD( uint32_t,             sequence, 0 ) \
   FIELD( uint32_t,             unused,   0 ) /* keys are of whole 8 bytes */

#define PUBLISHED_ACCESS_RULE( FIELD ) \
   FIELD( Published::AccessRuleKey, key,         {} ) \
   FIELD( Acl::AclType,             type,        Acl::standard ) /* the list's */ \
   FIELD( Acl::AclAction,           action,      Acl::deny ) \
   FIELD( Vantu::IpGenPrefix,       source,      {} ) \
   FIELD( Vantu::IpGenPrefix,       destination, {} )

#define PUBLISHED_SETTING( FIELD ) \
   FIELD( Published::Text<32>,  key,   {} ) /* as in the configuration */ \
   FIELD( Published::Text<224>, value, {} )

#define PUBLISHED_COUNTER_KEY( FIELD ) \
   FIELD( Published::Text<160>, owner, {} ) \
   FIELD( Published::Text<48>,  name,  {} )

#define PUBLISHED_COUNTER( FIELD ) \
   FIELD( Published::CounterKey, key,   {} ) \
   FIELD( uint64_t,              value, 0 )
// clang-format on

// The state of a host's interface, where the publishing process knows it.
MOX_ENUM( LinkState, PUBLISHED_LINK_STATES )
MOX_ENUM_TEXT( LinkState, PUBLISHED_LINK_STATES )

struct Interface {
   PUBLISHED_INTERFACE( MOX_RECORD_FIELD )
   bool operator==( const Interface& ) const = default;
};

struct OwnAddressKey {
   PUBLISHED_OWN_ADDRESS_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const OwnAddressKey& ) const = default;
};
struct OwnAddress {
   PUBLISHED_OWN_ADDRESS( MOX_RECORD_FIELD )
   bool operator==( const OwnAddress& ) const = default;
};

struct NeighborKey {
   PUBLISHED_NEIGHBOR_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const NeighborKey& ) const = default;
};
struct Neighbor {
   PUBLISHED_NEIGHBOR( MOX_RECORD_FIELD )
   bool operator==( const Neighbor& ) const = default;
};

struct NeighborAddressKey {
   PUBLISHED_NEIGHBOR_ADDRESS_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const NeighborAddressKey& ) const = default;
};
struct NeighborAddress {
   PUBLISHED_NEIGHBOR_ADDRESS( MOX_RECORD_FIELD )
   bool operator==( const NeighborAddress& ) const = default;
};

struct Downstream {
   PUBLISHED_DOWNSTREAM( MOX_RECORD_FIELD )
   bool operator==( const Downstream& ) const = default;
};

struct Registering {
   PUBLISHED_REGISTERING( MOX_RECORD_FIELD )
   bool operator==( const Registering& ) const = default;
};

struct RpKey {
   PUBLISHED_RP_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const RpKey& ) const = default;
};
struct Rp {
   PUBLISHED_RP( MOX_RECORD_FIELD )
   bool operator==( const Rp& ) const = default;
};

struct AccessRuleKey {
   PUBLISHED_ACCESS_RULE_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const AccessRuleKey& ) const = default;
};
struct AccessRule {
   PUBLISHED_ACCESS_RULE( MOX_RECORD_FIELD )
   bool operator==( const AccessRule& ) const = default;
};

struct Setting {
   PUBLISHED_SETTING( MOX_RECORD_FIELD )
   bool operator==( const Setting& ) const = default;
};

struct CounterKey {
   PUBLISHED_COUNTER_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const CounterKey& ) const = default;
};
struct Counter {
   PUBLISHED_COUNTER( MOX_RECORD_FIELD )
   bool operator==( const Counter& ) const = default;
};

}

namespace Brane {

BRANE_FLAT_RECORD( Published::Interface, "Interface", PUBLISHED_INTERFACE )
BRANE_FLAT_RECORD( Published::OwnAddressKey, "OwnAddressKey",
                   PUBLISHED_OWN_ADDRESS_KEY )
BRANE_FLAT_RECORD( Published::OwnAddress, "OwnAddress", PUBLISHED_OWN_ADDRESS )
BRANE_FLAT_RECORD( Published::NeighborKey, "NeighborKey", PUBLISHED_NEIGHBOR_KEY )
BRANE_FLAT_RECORD( Published::Neighbor, "Neighbor", PUBLISHED_NEIGHBOR )
BRANE_FLAT_RECORD( Published::NeighborAddressKey, "NeighborAddressKey",
                   PUBLISHED_NEIGHBOR_ADDRESS_KEY )
BRANE_FLAT_RECORD( Published::NeighborAddress, "NeighborAddress",
                   PUBLISHED_NEIGHBOR_ADDRESS )
BRANE_FLAT_RECORD( Published::Downstream, "Downstream", PUBLISHED_DOWNSTREAM )
BRANE_FLAT_RECORD( Published::Registering, "Registering", PUBLISHED_REGISTERING )
BRANE_FLAT_RECORD( Published::RpKey, "RpKey", PUBLISHED_RP_KEY )
BRANE_FLAT_RECORD( Published::Rp, "Rp", PUBLISHED_RP )
BRANE_FLAT_RECORD( Published::AccessRuleKey, "AccessRuleKey",
                   PUBLISHED_ACCESS_RULE_KEY )
BRANE_FLAT_RECORD( Published::AccessRule, "AccessRule", PUBLISHED_ACCESS_RULE )
BRANE_FLAT_RECORD( Published::Setting, "Setting", PUBLISHED_SETTING )
BRANE_FLAT_RECORD( Published::CounterKey, "CounterKey", PUBLISHED_COUNTER_KEY )
BRANE_FLAT_RECORD( Published::Counter, "Counter", PUBLISHED_COUNTER )

}
