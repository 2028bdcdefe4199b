// PIM version 2 messages (RFC 7761, 4.9).
//
// Hello, join/prune, assert and register-stop are decoded in full. Of a register's
// data packet only the addresses are, of every other message only the type, which
// the agent counts. A message is checked as a whole before any part of it is used.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "packet/DropReason.h"
#include "packet/Ip.h"
#include "platform/net/IpGenAddr.h"

namespace Router {

constexpr uint8_t pimProtocol = 103;

// The group of all PIM routers of a link (RFC 7761, 4.9).
PIMSM_API const Vantu::IpGenAddr& allPimRouters( Vantu::AddressFamily family );

// Numbered as on the wire; other numbers occur.
enum class PimType : uint8_t {
   hello,
   registerData,
   registerStop,
   joinPrune,
   bootstrap,
   assertion,
   graft,
   graftAck,
   candidateRp,
   stateRefresh,
   dfElection
};

// For metrics and traces: "hello", "join-prune"; "unknown" for other numbers.
PIMSM_API Mox::StringView pimTypeName( PimType type );

// Times in milliseconds.
struct LanPruneDelay {
   bool trackingSupport = false;
   uint16_t propagationDelay = 0;
   uint16_t overrideInterval = 0;
   bool operator==( const LanPruneDelay& ) const = default;
};

// An absent option is empty. When an option comes twice, the last counts. State
// refresh and unknown options are skipped.
struct PimHello {
   std::optional<uint16_t> holdtime;  // s; 0xffff = for ever, 0 = goodbye
   std::optional<LanPruneDelay> lanPruneDelay;
   std::optional<uint32_t> drPriority;
   std::optional<uint32_t> generationId;
   std::vector<Vantu::IpGenAddr> addresses;  // the sender's secondary ones
   bool operator==( const PimHello& ) const = default;
};

// The mask length of a single address. A source's is always this one (RFC 7761,
// 4.9.1); the engines take no other of a group, either.
inline uint8_t hostMask( const Vantu::IpGenAddr& address ) {
   return static_cast<uint8_t>( Vantu::addressBits( address.family() ) );
}

// Below, a mask length is by default that of the address that the initializer
// gives: `EncodedSource{ .address = source }` is complete. An address assigned
// later does not change it.
struct EncodedSource {
   Vantu::IpGenAddr address;
   uint8_t maskLength = hostMask( address );
   bool sparse = true;
   bool wildcard = false;
   bool rpt = false;
};

struct JoinPruneGroup {
   Vantu::IpGenAddr address;
   uint8_t maskLength = hostMask( address );
   std::vector<EncodedSource> joins = {};
   std::vector<EncodedSource> prunes = {};
};

// All addresses are of the packet's family.
struct PimJoinPrune {
   static constexpr size_t maxGroups = 255;  // of one message

   Vantu::IpGenAddr upstreamNeighbor;
   uint16_t holdtime = 0;  // s; 0xffff = for ever
   std::vector<JoinPruneGroup> groups;
};

// A data packet that a router passed on, or a null register's header alone (RFC
// 7761, 4.9.3). Both addresses are of the outer packet's family.
struct PimRegister {
   bool border = false;
   bool nullRegister = false;
   Vantu::IpGenAddr source;
   Vantu::IpGenAddr group;  // the data packet's destination, whatever it is
   // For encoding: the whole data packet; empty for a null register. Decoding
   // leaves it empty.
   Bytes packet;
};

// RFC 7761, 4.9.4.
struct PimRegisterStop {
   Vantu::IpGenAddr group;
   uint8_t maskLength = hostMask( group );
   Vantu::IpGenAddr source = {};  // unspecified: every source of the group
};

// RFC 7761, 4.9.6.
struct PimAssert {
   Vantu::IpGenAddr group;
   uint8_t maskLength = hostMask( group );
   Vantu::IpGenAddr source = {};  // unspecified: a (*,G) assert
   bool rptBit = false;
   uint32_t preference = 0;  // 31 bits
   uint32_t metric = 0;
};

struct PimMessage {
   using Body = std::variant<std::monostate, PimHello, PimJoinPrune, PimRegister,
                             PimRegisterStop, PimAssert>;
   PimType type = PimType::hello;
   Body body;
};

// A message of the body's type. REQUIRES: a body.
PIMSM_API PimMessage pimMessage( PimMessage::Body body );

// Fills `out` and returns notDropped, or returns the reason and leaves `out`
// unspecified. The checksum covers the message, for IPv6 with the pseudo header.
// For a register it covers only the first 8 bytes, which is then also the length in
// the pseudo header; a checksum over the whole register is accepted, too (RFC 7761,
// 4.9 and 4.9.3).
[[nodiscard]] PIMSM_API DropReason decodePim( const IpPacket& packet,
                                              PimMessage& out );

}
