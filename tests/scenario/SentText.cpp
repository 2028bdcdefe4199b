#include "tests/scenario/SentText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "packet/Encode.h"
#include "tests/scenario/Script.h"

namespace Scenario {
namespace {

using namespace Router;
using Vantu::IpGenAddr;

class Text {
 public:
   Text( const Outgoing& message, const Names& names,
         const std::function<IpGenAddr( const IpGenAddr& )>& rpOf )
      : message_( message ), names_( names ), rpOf_( rpOf ) {}

   std::string text() const {
      const std::string intf( message_.intfId.name() );
      const std::string words = std::visit( *this, message_.message );
      return intf.empty() ? words : intf + ' ' + words;
   }

   std::string operator()( const PimMessage& pim ) const {
      return std::visit( *this, pim.body );
   }
   std::string operator()( const MembershipMessage& message ) const {
      return std::visit( *this, message );
   }
   std::string operator()( const std::monostate& ) const { return "nothing"; }
   std::string operator()( const PimHello& hello ) const {
      std::string out = "hello";
      if ( hello.holdtime != 105 )
         out += fmt::format( " hold {}", hello.holdtime.value_or( 0 ) );
      if ( hello.drPriority != 1U )
         out += fmt::format( " dr {}", hello.drPriority.value_or( 0 ) );
      // What a random number of one half gives.
      if ( hello.generationId != 0x80000000U )
         out += fmt::format( " generation {}", hello.generationId.value_or( 0 ) );
      const LanPruneDelay delay = hello.lanPruneDelay.value_or( LanPruneDelay() );
      if ( delay.propagationDelay != 500 || delay.overrideInterval != 2500 )
         out += fmt::format( " delays {}/{}", delay.propagationDelay,
                             delay.overrideInterval );
      if ( delay.trackingSupport ) out += " tracking";
      for ( const IpGenAddr& each : hello.addresses )
         out += " and " + names_.of( each );
      return out;
   }
   std::string operator()( const PimJoinPrune& message ) const {
      std::vector<std::string> entries;
      for ( const JoinPruneGroup& group : message.groups ) {
         for ( const EncodedSource& each : group.joins )
            entries.push_back( "join " + entry( group, each ) );
         for ( const EncodedSource& each : group.prunes )
            entries.push_back( "prune " + entry( group, each ) );
      }
      std::string out = fmt::format( "{} to {}", fmt::join( entries, ", " ),
                                     names_.of( message.upstreamNeighbor ) );
      if ( message.holdtime != 210 )
         out += fmt::format( " hold {}", message.holdtime );
      return out;
   }
   std::string operator()( const PimRegister& message ) const {
      return fmt::format(
         "register {}{} to {}",
         names_.of( Routing::Pim::RouteKey{ message.source, message.group } ),
         message.nullRegister ? " null" : "", names_.of( message_.destination ) );
   }
   std::string operator()( const PimRegisterStop& message ) const {
      return fmt::format(
         "register-stop {} to {}",
         names_.of( Routing::Pim::RouteKey{ message.source, message.group } ),
         names_.of( message_.destination ) );
   }
   std::string operator()( const PimAssert& message ) const {
      const std::string route =
         names_.of( Routing::Pim::RouteKey{ message.source, message.group } );
      const bool shared = message.source.isUnspecified();
      std::string out = "assert " + route;
      if ( message.rptBit != shared ) out += message.rptBit ? " rpt" : " no-rpt";
      if ( message.preference == 0x7fffffff && message.metric == 0xffffffff )
         return out + " infinite";
      return out + fmt::format( " {}/{}", message.preference, message.metric );
   }
   std::string operator()( const MembershipReport& ) const { return "report"; }
   std::string operator()( const MembershipQuery& query ) const {
      std::string out = "query";
      if ( !query.group.isUnspecified() ) out += " of " + names_.of( query.group );
      constexpr size_t kMany = 10;
      if ( query.sources.size() > kMany )
         out += fmt::format( " *{}", query.sources.size() );
      else
         for ( const IpGenAddr& each : query.sources )
            out += ' ' + names_.of( each );
      out += fmt::format( " respond {:g}", query.maxResponse );
      if ( query.version == 3 && query.robustness != 2 )
         out += fmt::format( " robustness {}", query.robustness );
      if ( query.version == 3 && query.interval != 125 )
         out += fmt::format( " interval {:g}", query.interval );
      if ( query.suppress ) out += " suppress";
      if ( query.version != 3 ) out += fmt::format( " v{}", query.version );
      return out;
   }

 private:
   std::string entry( const JoinPruneGroup& group,
                      const EncodedSource& source ) const {
      const IpGenAddr any = IpGenAddr::unspecified( group.address.family() );
      std::string out = names_.of( Routing::Pim::RouteKey{
         source.wildcard ? any : source.address, group.address } );
      if ( source.wildcard && source.address != rpOf_( group.address ) )
         out += " rp " + names_.of( source.address );
      if ( source.wildcard != source.rpt ) out += " rpt";
      const auto whole = Vantu::addressBits( any.family() );
      if ( !source.sparse || source.maskLength != whole ||
           group.maskLength != whole || source.address == any )
         out += " malformed";
      return out;
   }

   const Outgoing& message_;
   const Names& names_;
   const std::function<IpGenAddr( const IpGenAddr& )>& rpOf_;
};

}

std::string sentText( const Outgoing& message, const Names& names,
                      const std::function<IpGenAddr( const IpGenAddr& )>& rpOf ) {
   return Text( message, names, rpOf ).text();
}

std::string eventText( const Published::Event& event, const Names& names ) {
   // A route's events name the interface that it comes in by.
   const bool ofRoute = event.kind == Published::routeCame ||
                        event.kind == Published::routeGone ||
                        event.kind == Published::rpfChanged ||
                        event.kind == Published::onSourceTree ||
                        event.kind == Published::onSharedTree;
   const std::string intf{ event.intf.name() };
   std::string text = ofRoute || intf.empty() ? "" : intf + ' ';
   if ( event.group.isMulticast() )
      text += names.of( { event.source, event.group } ) + ' ';
   text += valueToStrep( event.kind );
   if ( ofRoute && !intf.empty() ) text += " in " + intf;
   if ( event.kind == Published::refused )
      text += ' ' + valueToStrep( event.refusal );
   if ( event.kind == Published::rpfChanged && !event.otherIntf.empty() )
      text += " from " + std::string( event.otherIntf.name() );
   if ( event.kind == Published::assertWon || event.kind == Published::assertLost )
      text += ' ' + std::to_string( event.preference ) + '/' +
              std::to_string( event.metric );
   if ( !event.address.isUnspecified() ) text += " of " + names.of( event.address );
   const bool elected =
      event.kind == Published::drChanged || event.kind == Published::querierChanged;
   if ( elected && !event.otherAddress.isUnspecified() )
      text += " for " + names.of( event.otherAddress );
   if ( event.kind != Published::refused )
      text += ' ' + valueToStrep( event.cause );
   return text;
}

Outgoing throughTheWire( const Outgoing& message ) {
   const auto* pim = std::get_if<PimMessage>( &message.message );
   IpPacket packet;
   packet.source = message.source;
   packet.destination = message.destination;
   const bool ipv4 = packet.family() == Vantu::AddressFamily::ipv4;
   packet.protocol = pim != nullptr ? pimProtocol
                     : ipv4         ? igmpProtocol
                                    : icmp6Protocol;
   packet.ttl = 1;
   const std::vector<uint8_t> bytes =
      pim != nullptr
         ? encodePim( *pim, message.source, message.destination )
         : encodeMembership( std::get<MembershipMessage>( message.message ),
                             message.source, message.destination );
   packet.payload = bytes;
   Outgoing out = message;
   const DropReason reason = decodeMessage( packet, out.message );
   if ( reason != notDropped )
      throw ScriptError( "sent what nobody can decode: " +
                         std::string( dropName( reason ) ) );
   return out;
}

}
