#include "apps/show/text/EventText.h"

#include <fmt/format.h>

#include "apps/program/Printable.h"
#include "apps/show/text/Words.h"

namespace Show {

using Published::Event;

namespace {

std::string senderText( const Vantu::IpGenAddr& address ) {
   return address.isUnspecified() ? "an unknown sender"
                                  : Vantu::valueToStrep( address );
}

std::string way( Vantu::IntfId intf, const Vantu::IpGenAddr& neighbor ) {
   if ( intf.empty() ) return "no way";
   if ( neighbor.isUnspecified() ) return nameText( intf );
   return nameText( intf ) + " via " + Vantu::valueToStrep( neighbor );
}

// "join ", of what is refused.
std::string messageText( const Event& event ) {
   const Published::MessageKind message = event.message;
   if ( event.value != 0 )
      return message == Published::reportMessage ? "leave " : "prune ";
   static constexpr const char* kTexts[] = {
      "",          "hello ",         "join ",        "assert ",
      "register ", "register-stop ", "PIM message ", "report ",
      "query " };
   static_assert( std::size( kTexts ) == Published::queryMessage + 1 );
   return message < std::size( kTexts ) ? kTexts[message] : "";
}

// What ended it, behind what ended.
std::string endText( const Event& event ) {
   switch ( event.cause ) {
      case Published::byExpiry:
         return "expired";
      case Published::byLeave:
         return "ended: the last host has left";
      case Published::byPrune:
         return "ended: it was pruned, and nobody overrode that";
      case Published::byMessage:
         return "ended by a message of its sender or group";
      case Published::byGoodbye:
         return "said goodbye";
      case Published::byInterface:
         return "ended: the interface has gone";
      case Published::byConfiguration:
         return "ended by the configuration";
      case Published::byNeighbor:
         return "ended: a neighbor came, went or restarted";
      default:
         return "ended";
   }
}

std::string causeText( const Event& event ) {
   switch ( event.cause ) {
      case Published::byExpiry:
         return ", by a timer";
      case Published::byLeave:
         return ": the last host has left";
      case Published::byInterface:
         return ": the interface has gone";
      case Published::byConfiguration:
         return ", by the configuration";
      case Published::byUnicast:
         return ", by the host's routes";
      case Published::byNeighbor:
         return ": a neighbor came, went or restarted";
      case Published::byAssert:
         return ", by an assert";
      case Published::byData:
         return ", as packets came";
      case Published::byRestart:
         return ", taken up after a restart";
      case Published::byMessage:
         return event.address.isUnspecified()
                   ? ""
                   : ", after a message of " + Vantu::valueToStrep( event.address );
      default:
         return "";
   }
}

std::string metricText( const Event& event ) {
   return fmt::format( "{}/{}", event.preference, event.metric );
}

}

std::string refusalText( Published::Refusal refusal ) {
   static constexpr const char* kTexts[] = {
      "the interface has no address of the family, or is none of PIM's",
      "the interface is passive: it is for hosts only",
      "it is this router's own",
      "it was not sent to all PIM routers",
      "messages of its type are not handled",
      "its sender has said no hello here, or long ago",
      "it is for another router",
      "the group is no multicast address",
      "the group never leaves its link",
      "it is of a range of groups or sources",
      "its source is none",
      "it has contradicting flags",
      "too many messages waited while the tables were read",
      "the group has no route",
      "the group is source-specific and has no shared tree",
      "the group's address should name its RP, and does not",
      "its RP is not the one that is configured here",
      "it is for another router",
      "it is of another router of the anycast RP",
      "the register-filter bars it",
      "another router is the group's RP",
      "the source is not on a link of this router",
      "the table has no room",
      "the link has too many sources of the group",
      "the link has too many groups with members",
      "another router is the querier",
      "the link has too many neighbors",
      "its TTL is not 1",
      "its sender's address is not link-local",
      "it lacks the router alert option",
      "its sender is of no subnet of the link",
      "the neighbor-filter bars its sender",
      "the join-prune-filter bars it",
      "the access-group bars it",
      "the group ends at the link's boundary" };
   static_assert( std::size( kTexts ) == Published::refusalCount );
   return refusal < Published::refusalCount
             ? kTexts[refusal]
             : Mox::String( valueToStrep( refusal ) );
}

std::string eventText( const Event& event ) {
   using namespace Published;
   const std::string of = senderText( event.address );
   switch ( event.kind ) {
      case routeCame:
         return event.intf.empty()
                   ? "route made, without a path"
                   : "route made, in " + way( event.intf, event.address );
      case routeGone:
         return "route removed";
      case rpfChanged: {
         Event cause = event;
         cause.address = {};
         return "its path moved from " +
                way( event.otherIntf, event.otherAddress ) + " to " +
                way( event.intf, event.address ) + causeText( cause );
      }
      case onSourceTree:
      case onSharedTree: {
         Event cause = event;
         cause.address = {};
         return ( event.kind == onSourceTree ? "taken from the source tree"
                                             : "taken from the shared tree" ) +
                causeText( cause );
      }
      case sourceCame:
         return "source sends" + causeText( event );
      case sourceGone:
         return "source is silent" + causeText( event );
      case joinCame:
         return "joined by " + of;
      case joinPruned:
         return "pruned by " + of + ", waits for others";
      case joinGone:
         return "join of " + of + ' ' + endText( event );
      case rptPruneCame:
         return "source pruned from the shared tree by " + of;
      case rptPruneGone:
         return "prune from the shared tree " + endText( event );
      case memberCame:
         return event.address.isUnspecified() ? "members" + causeText( event )
                                              : "member: " + of;
      case memberExcludes:
         return "source excluded by " + of;
      case memberGone:
         return "members gone" + causeText( event );
      case assertWon:
         return "assert won with " + metricText( event );
      case assertLost:
         return "assert lost to " + of + " with " + metricText( event );
      case assertGone:
         return "assert " + endText( event );
      case forwardBegan:
         return "forwards";
      case forwardEnded:
         return "no longer forwards";
      case joinSent:
         return "join sent to " + of;
      case pruneSent:
         return "prune sent to " + of;
      case rptPruneSent:
         return "prune of the source from the shared tree sent to " + of;
      case rptJoinSent:
         return "prune of the source taken back at " + of;
      case registerBegan:
         return "registered with RP " + of;
      case registerStopped:
         return "RP " + of + " stopped the registers";
      case registerProbes:
         return "RP " + of + " is asked whether it wants registers";
      case registerEnded:
         return "no longer registered with RP " + of;
      case registerCame:
         return "registers of " + of + " began";
      case neighborCame:
         return "neighbor " + of + " came";
      case neighborGone:
         return "neighbor " + of + ' ' + endText( event );
      case neighborRestarted:
         return fmt::format( "neighbor {} restarted, generation id {:#x}", of,
                             event.value );
      case drChanged:
         return "DR is " + of +
                ( event.otherAddress.isUnspecified()
                     ? ""
                     : ", was " + Vantu::valueToStrep( event.otherAddress ) );
      case querierChanged:
         return "querier is " + of +
                ( event.otherAddress.isUnspecified()
                     ? ""
                     : ", was " + Vantu::valueToStrep( event.otherAddress ) );
      case interfaceCame:
         return "interface came";
      case interfaceGone:
         return "interface gone, or has no address";
      case refused:
         return messageText( event ) + "refused" +
                ( event.address.isUnspecified()
                     ? ""
                     : " from " + Vantu::valueToStrep( event.address ) ) +
                ": " + refusalText( event.refusal );
      case entryWritten:
         return fmt::format( "kernel entry: in {}, {}", way( event.intf, {} ),
                             countText( event.value, "interface" ) + " out" );
      case entryRemoved:
         return "kernel entry removed";
      case entryRefused:
         return "the kernel refused the entry";
      case wrongInterface:
         return "packets came by the wrong interface";
      case started:
         return "started; took up " + countText( event.value, "route" );
      case configurationRead:
         return "configuration read";
      case ended:
         return "agent ended";
      case noEvent:
         break;
   }
   return Mox::String( valueToStrep( event.kind ) );
}

std::string eventWords( const Event& event ) {
   std::string out;
   if ( event.group.isMulticast() )
      out += keyText( { event.source, event.group } ) + "  ";
   const bool told = event.kind == Published::routeCame ||
                     event.kind == Published::rpfChanged ||
                     event.kind == Published::entryWritten;
   if ( !event.intf.empty() && !told ) out += nameText( event.intf ) + "  ";
   return out + eventText( event );
}

namespace {

// "02:14:07.114Z", with the date where that is not today's.
std::string wallText( double at, double now ) {
   constexpr size_t kDate = 10;  // "2024-05-01"
   const std::string time = utcOf( at );
   const bool today = time.substr( 0, kDate ) == utcOf( now ).substr( 0, kDate );
   return today ? time.substr( kDate + 1 ) : time;
}

}

std::string eventLine( const Logged& logged, double now ) {
   const Event& event = logged.event;
   std::string out = wallText( event.at, now );
   out += fmt::format( " {:>6}  ", spanText( now - event.at ) );
   if ( !event.vrf.text().empty() )
      out += Programs::printable( event.vrf.text() ) +
             ( event.ipVersion == 6 ? " ipv6  " : " ipv4  " );
   out += eventWords( event );
   if ( logged.count > 1 )
      out += fmt::format( ", {} times, last {} ago", logged.count,
                          spanText( now - logged.last ) );
   return out;
}

}
