#include "tests/scenario/Messages.h"

#include <algorithm>

#include "packet/Encode.h"
#include "packet/Writer.h"

namespace Scenario {
namespace {

using namespace Router;
using Routing::Pim::RouteKey;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

IpGenAddr addr( const char* text ) {
   return IpGenAddr( Mox::StringView( text ) );
}

class MessageReader {
 public:
   MessageReader( Words& words, const Names& names, const Habits& habits,
                  const Link& link )
      : words_( words ), names_( names ), link_( link ), hold_( habits.holdtime ) {
      from_ = names.address( habits.from );
   }

   Sent read();

 private:
   PimHello hello();
   PimJoinPrune joinPrune( bool join );
   void entry( PimJoinPrune& out, bool join );
   PimAssert assertion();
   PimRegister registered();
   PimRegisterStop registerStop();
   MembershipReport report( const std::string& type );
   MembershipQuery query();
   void addSources( std::vector<IpGenAddr>& out );

   // Sender, receiver and hold time of any message, at its end.
   bool option();
   void options() {
      while ( option() ) {
      }
      words_.expectEnd();
   }
   RouteKey route() { return names_.route( words_.next() ); }
   IpGenAddr address() { return names_.address( words_.next() ); }
   template <class Body>
   Sent pim( const Body& body );
   Sent membership( const MembershipMessage& message );

   // A bare IPv4 header of a UDP packet.
   Router::Bytes dataPacket( const RouteKey& key ) {
      Writer header;
      header.u8( 0x45 ).u8( 0 ).u16( 20 ).u32( 0 ).u8( 15 ).u8( 17 ).u16( 0 );
      header.address( key.source, AddressFamily::ipv4 );
      header.address( key.group, AddressFamily::ipv4 );
      data_ = header.take();
      return data_;
   }

   Words& words_;
   std::vector<uint8_t> data_;
   const Names& names_;
   const Link& link_;
   IpGenAddr from_;
   std::optional<IpGenAddr> to_;
   uint16_t hold_;
   uint8_t ttl_ = 1;
   bool routerAlert_ = true;
   uint8_t version_ = 3;
};

bool MessageReader::option() {
   if ( words_.accept( "from" ) ) {
      from_ = address();
   } else if ( words_.accept( "to" ) ) {
      to_ = address();
   } else if ( words_.accept( "hold" ) ) {
      hold_ = words_.accept( "forever" ) ? 0xffff : words_.holdtime();
   } else if ( words_.accept( "ttl" ) ) {
      ttl_ = static_cast<uint8_t>( words_.whole() );
   } else if ( words_.accept( "no-alert" ) ) {
      routerAlert_ = false;
   } else if ( words_.accept( "v1" ) ) {
      version_ = 1;
   } else if ( words_.accept( "v2" ) ) {
      version_ = 2;
   } else {
      return false;
   }
   return true;
}

// hello [and ADDRESS] [dr N | no-dr] [generation N] [delays PROPAGATION/OVERRIDE in ms] [no-hold]
PimHello MessageReader::hello() {
   PimHello out;
   out.drPriority = 1;
   bool holds = true;
   hold_ = 105;
   while ( !words_.atEnd() ) {
      if ( option() ) continue;
      if ( words_.accept( "dr" ) ) {
         out.drPriority = words_.whole();
      } else if ( words_.accept( "no-dr" ) ) {
         out.drPriority.reset();
      } else if ( words_.accept( "no-hold" ) ) {
         holds = false;
      } else if ( words_.accept( "and" ) ) {
         out.addresses.push_back( address() );
      } else if ( words_.accept( "generation" ) ) {
         out.generationId = words_.whole();
      } else if ( words_.accept( "delays" ) ) {
         const std::string both = words_.next();
         const size_t stroke = both.find( '/' );
         out.lanPruneDelay = LanPruneDelay{
            true, static_cast<uint16_t>( std::stoul( both ) ),
            static_cast<uint16_t>( std::stoul( both.substr( stroke + 1 ) ) ) };
      } else {
         words_.expectEnd();
      }
   }
   if ( holds ) out.holdtime = hold_;
   return out;
}

// join A, prune B rpt, C rpt, join D mask 31: adjacent entries of one group share
// it.
PimJoinPrune MessageReader::joinPrune( bool join ) {
   PimJoinPrune out;
   while ( true ) {
      entry( out, join );
      while ( option() ) {
      }
      if ( !words_.accept( "," ) ) break;
      if ( words_.accept( "join" ) ) join = true;
      if ( words_.accept( "prune" ) ) join = false;
   }
   options();
   out.upstreamNeighbor = to_.value_or( link_.own );
   out.holdtime = hold_;
   return out;
}

void MessageReader::entry( PimJoinPrune& out, bool join ) {
   const RouteKey key = route();
   EncodedSource source{ .address = key.source };
   JoinPruneGroup group{ .address = key.group };
   if ( key.source.isUnspecified() ) {
      source.address = link_.rpOf( key.group );
      source.wildcard = source.rpt = true;
   }
   while ( true ) {
      if ( words_.accept( "rpt" ) ) {
         source.rpt = true;
      } else if ( words_.accept( "no-rpt" ) ) {
         source.rpt = false;
      } else if ( words_.accept( "rp" ) ) {
         source.address = address();
         source.wildcard = source.rpt = true;
      } else if ( words_.accept( "mask" ) ) {
         source.maskLength = static_cast<uint8_t>( words_.whole() );
      } else if ( words_.accept( "group-mask" ) ) {
         group.maskLength = static_cast<uint8_t>( words_.whole() );
      } else {
         break;
      }
   }
   if ( out.groups.empty() || out.groups.back().address != key.group )
      out.groups.push_back( group );
   ( join ? out.groups.back().joins : out.groups.back().prunes )
      .push_back( source );
}

// assert A [rpt] PREFERENCE/METRIC [mask N]; an assert of the group has the RPT bit.
PimAssert MessageReader::assertion() {
   const RouteKey key = route();
   PimAssert out{ .group = key.group, .source = key.source };
   out.rptBit = key.source.isUnspecified();
   if ( words_.accept( "rpt" ) ) out.rptBit = true;
   if ( words_.accept( "no-rpt" ) ) out.rptBit = false;
   const std::string both = words_.next();
   const size_t stroke = both.find( '/' );
   if ( both == "infinite" ) {
      out.preference = 0x7fffffff;
      out.metric = 0xffffffff;
   } else if ( stroke == std::string::npos ) {
      throw ScriptError( "no preference and metric: " + both );
   } else {
      out.preference = static_cast<uint32_t>( std::stoul( both ) );
      out.metric = static_cast<uint32_t>( std::stoul( both.substr( stroke + 1 ) ) );
   }
   if ( words_.accept( "mask" ) )
      out.maskLength = static_cast<uint8_t>( words_.whole() );
   options();
   return out;
}

// register A [null] from ROUTER to RP
PimRegister MessageReader::registered() {
   const RouteKey key = route();
   PimRegister out;
   out.source = key.source;
   out.group = key.group;
   out.nullRegister = words_.accept( "null" );
   if ( !out.nullRegister ) out.packet = dataPacket( key );
   to_ = link_.own;
   options();
   return out;
}

// register-stop A [mask N] from RP to ROUTER; (*,G) is for all sources.
PimRegisterStop MessageReader::registerStop() {
   const RouteKey key = route();
   PimRegisterStop out{ .group = key.group, .source = key.source };
   if ( words_.accept( "mask" ) )
      out.maskLength = static_cast<uint8_t>( words_.whole() );
   to_ = link_.own;
   options();
   return out;
}

// A source, or "10.1.0.0*300": so many, one after the other.
void MessageReader::addSources( std::vector<IpGenAddr>& out ) {
   const std::string word = words_.next();
   const size_t star = word.find( '*' );
   if ( star == std::string::npos ) return out.push_back( names_.address( word ) );
   const IpGenAddr first = names_.address( word.substr( 0, star ) );
   auto bytes = first.bytes();
   const size_t last = Vantu::addressBits( first.family() ) / 8 - 1;
   for ( size_t left = std::stoul( word.substr( star + 1 ) ); left > 0; --left ) {
      out.push_back( IpGenAddr::fromBytes( first.family(), bytes.data() ) );
      if ( ++bytes[last] == 0 ) ++bytes[last - 1];
   }
}

const std::map<std::string, MembershipRecordType> kRecords = {
   { "is-in", isInclude }, { "is-ex", isExclude }, { "to-in", toInclude },
   { "to-ex", toExclude }, { "allow", allow },     { "block", block } };

// is-in G A B, to-ex G C: the names of RFC 3376, 4.2.12.
MembershipReport MessageReader::report( const std::string& first ) {
   MembershipReport out;
   std::string type = first;
   while ( true ) {
      auto found = kRecords.find( type );
      if ( found == kRecords.end() ) throw ScriptError( "no record: " + type );
      MembershipRecord record{ found->second, address(), {} };
      while ( !words_.atEnd() && words_.peek() != "," && !option() )
         addSources( record.sources );
      out.records.push_back( std::move( record ) );
      while ( option() ) {
      }
      if ( !words_.accept( "," ) ) break;
      type = words_.next();
   }
   words_.expectEnd();
   out.version = version_;
   return out;
}

// query [of G [A B]] respond S [robustness N] [interval S] [suppress]
MembershipQuery MessageReader::query() {
   MembershipQuery out;
   out.group = IpGenAddr::unspecified( from_.family() );
   if ( words_.accept( "of" ) ) {
      out.group = address();
      while ( words_.peek() != "respond" ) out.sources.push_back( address() );
   }
   while ( !words_.atEnd() ) {
      if ( option() ) continue;
      if ( words_.accept( "respond" ) ) {
         out.maxResponse = words_.seconds();
      } else if ( words_.accept( "robustness" ) ) {
         out.robustness = static_cast<uint8_t>( words_.whole() );
      } else if ( words_.accept( "interval" ) ) {
         out.interval = words_.seconds();
      } else if ( words_.accept( "suppress" ) ) {
         out.suppress = true;
      } else {
         words_.expectEnd();
      }
   }
   out.version = version_;
   return out;
}

template <class Body>
Sent MessageReader::pim( const Body& body ) {
   const bool ipv4 = from_.family() == AddressFamily::ipv4;
   const bool multicast =
      !std::is_same_v<Body, PimRegister> && !std::is_same_v<Body, PimRegisterStop>;
   Sent out;
   out.packet.source = from_;
   out.packet.destination =
      multicast ? addr( ipv4 ? "224.0.0.13" : "ff02::d" ) : *to_;
   out.packet.protocol = pimProtocol;
   out.packet.ttl = ttl_;
   PimMessage message;
   message.body = body;
   out.payload = encodePim( message, from_, out.packet.destination );
   return out;
}

Sent MessageReader::membership( const MembershipMessage& message ) {
   const bool ipv4 = from_.family() == AddressFamily::ipv4;
   Sent out;
   out.packet.source = from_;
   out.packet.destination = addr( ipv4 ? "224.0.0.22" : "ff02::16" );
   out.packet.protocol = ipv4 ? igmpProtocol : icmp6Protocol;
   out.packet.ttl = ttl_;
   out.packet.routerAlert = routerAlert_;
   out.payload = encodeMembership( message, from_, out.packet.destination );
   return out;
}

Sent MessageReader::read() {
   const std::string kind = words_.next();
   if ( kind == "hello" ) return pim( hello() );
   if ( kind == "join" || kind == "prune" )
      return pim( joinPrune( kind == "join" ) );
   if ( kind == "assert" ) return pim( assertion() );
   if ( kind == "register" ) return pim( registered() );
   if ( kind == "register-stop" ) return pim( registerStop() );
   if ( kind == "query" ) return membership( query() );
   if ( kRecords.count( kind ) != 0 ) return membership( report( kind ) );
   throw ScriptError( "no message: " + kind );
}

}

Sent readMessage( Words& words, const Names& names, const Habits& habits,
                  const Link& link ) {
   Sent sent = MessageReader( words, names, habits, link ).read();
   sent.packet.payload = sent.payload;
   return sent;
}

}
