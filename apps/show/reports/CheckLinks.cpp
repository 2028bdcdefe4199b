#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "apps/mirror/AgentTables.h"
#include "apps/show/reports/Checks.h"
#include "apps/show/text/EventText.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Published::Event;
using Published::Interface;
using Routing::Pim::RouteKey;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

std::string whoText( const IpGenAddr& address ) {
   return address.isUnspecified() ? "somebody" : text( address );
}

// The operator's own word.
bool isPolicy( Published::Refusal refusal ) {
   return refusal == Published::barredNeighbor ||
          refusal == Published::barredJoin || refusal == Published::barredMember ||
          refusal == Published::beyondBoundary || refusal == Published::passiveLink;
}

std::string neighborsOf( IntfId intfId ) {
   return "pimsm-show neighbors --iface " + nameText( intfId );
}
std::string refusalsOf( IntfId intfId ) {
   return "pimsm-show log --event refused --iface " + nameText( intfId );
}

class LinkChecks {
 public:
   LinkChecks( const Mirror& mirror, const RouteFilter& filter,
               const Evidence& evidence, Checked& checked )
      : mirror_( mirror ),
        filter_( filter ),
        evidence_( evidence ),
        checked_( checked ) {}

   void check() {
      mirror_.agent->interface().visit( [&]( const Interface& record ) {
         if ( filter_.matches( record.key ) ) checkRole( record );
         return true;
      } );
      for ( const Route* route : selectRoutes( mirror_, filter_ ) )
         for ( const Intf* intf : selectIntfs( *route, filter_ ) )
            checkMember( *route, *intf );
      checkDoubles();
      checkRefusals();
   }

 private:
   void found( const char* kind, const RouteKey& key, IntfId intfId,
               const std::string& what, const std::string& see ) {
      checked_.findings.push_back( { kind, key, intfId, what, see } );
   }

   bool knows( IntfId intfId, const IpGenAddr& neighbor ) const {
      return !isReady( mirror_.agent->neighbor() ) ||
             mirror_.agent->neighbor().has( { intfId, neighbor, 0 } );
   }

   // The DR that the hellos elect, and what this router does.
   void checkRole( const Interface& record ) {
      const bool known = !record.dr.isUnspecified() &&
                         !record.address.isUnspecified() &&
                         record.link != Published::linkDown;
      if ( !known ) return;
      const bool own = record.dr == record.address;
      if ( record.iAmDr && !own )
         found(
            "two-drs", {}, record.key,
            fmt::format( "this router acts as DR, and by the hellos router {} is",
                         whoText( record.dr ) ),
            neighborsOf( record.key ) );
      if ( !record.iAmDr && own )
         found( "no-dr", {}, record.key,
                "this router is DR by the hellos, and does not act as DR",
                neighborsOf( record.key ) );
      if ( !own && !knows( record.key, record.dr ) )
         found( "no-dr", {}, record.key,
                fmt::format( "its DR, router {}, is no neighbor",
                             whoText( record.dr ) ),
                neighborsOf( record.key ) );
   }

   // Members that are left to a router that is not there.
   void checkMember( const Route& route, const Intf& intf ) {
      const IntfId intfId = intf.intfId();
      if ( !intf.localReceiverInclude() || intf.forward() ||
           route.incomingIntf() == intfId ||
           !isReady( mirror_.agent->interface() ) )
         return;
      const auto unserved = [&]( const std::string& why ) {
         found( "unserved", route.key(), intfId, "hosts ask for it, and " + why,
                fmt::format( "pimsm-show members --iface {} --group {}",
                             nameText( intfId ),
                             Vantu::valueToStrep( route.key().group ) ) );
      };
      Interface record;
      if ( mirror_.agent->interface().find( intfId, record ) != Brane::lookupFound )
         return unserved( "this is no interface of PIM" );
      const Sm::AssertInfo& assert = intf.assertInfo();
      const IpGenAddr& winner = assert.assertWinnerMetric.address;
      if ( assert.assertState == Sm::iAmAssertLoser && !knows( intfId, winner ) &&
           setting( "require-hello" ) != "no" )
         return unserved( "router " + whoText( winner ) +
                          ", which won the assert, is no neighbor" );
      if ( !record.iAmDr && !record.dr.isUnspecified() &&
           record.dr != record.address && !knows( intfId, record.dr ) )
         unserved( "the DR, router " + whoText( record.dr ) + ", is no neighbor" );
   }

   // A router that forwards by a link on which this one has won the assert: a while after
   // the last assert its packets still come in by it.
   void checkDoubles() {
      if ( !isReady( mirror_.mfib->upcall() ) ) return;
      mirror_.mfib->upcall().visit( [&]( const Published::MfibUpcall& up ) {
         if ( up.kind == Published::wrongVifUpcall &&
              evidence_.now - up.last < kRecent &&
              filter_.matches( up.key.routeKey ) &&
              filter_.matches( up.key.intfId ) && wonBefore( up ) )
            found( isDr( up.key.intfId ) ? "two-drs" : "two-forwarders",
                   up.key.routeKey, up.key.intfId,
                   "this router forwards there and has won the assert, and packets "
                   "still come in there: another router does not hear this one",
                   neighborsOf( up.key.intfId ) );
         return true;
      } );
   }

   bool wonBefore( const Published::MfibUpcall& up ) const {
      const RouteKey& key = up.key.routeKey;
      const RouteKey shared{ IpGenAddr::unspecified( mirror_.family ), key.group };
      for ( const RouteKey& each : { key, shared } ) {
         const Route* route = std::as_const( *mirror_.model ).route( each );
         if ( route == nullptr ) continue;
         // The source's own route decides, where there is one.
         const Intf* intf = route->routeIntf( up.key.intfId );
         if ( intf == nullptr || !intf->forward() ||
              route->incomingIntf() == up.key.intfId ||
              intf->assertInfo().assertState != Sm::iAmAssertWinner )
            return false;
         Published::Downstream timers;
         const bool timed =
            mirror_.agent->downstream().find( { each, up.key.intfId }, timers ) ==
               Brane::lookupFound &&
            timers.assertUntil != 0.0;
         // The winner's timer ends so long after its assert.
         constexpr double kBefore = 3.0, kPatience = 3.0;  // s
         const double sent = timers.assertUntil - ( assertTime() - kBefore );
         return timed && up.last > sent + kPatience;
      }
      return false;
   }

   double assertTime() const {
      constexpr double kDefault = 180.0;
      const double time = std::strtod( setting( "assert-time" ).c_str(), nullptr );
      return time > 0.0 ? time : kDefault;
   }
   // Empty: unknown.
   std::string setting( const char* name ) const {
      Published::Setting found;
      const bool known =
         isReady( mirror_.agent->setting() ) &&
         mirror_.agent->setting().find( Published::Text<32>( name ), found ) ==
            Brane::lookupFound;
      return known ? found.value.text() : "";
   }

   bool isDr( IntfId intfId ) const {
      Interface record;
      return mirror_.agent->interface().find( intfId, record ) ==
                Brane::lookupFound &&
             record.iAmDr;
   }

   // Of what is refused for the same reason on an interface the last one is told.
   struct Refused {
      const Logged* last = nullptr;
      size_t others = 0;
   };

   void checkRefusals() {
      std::map<std::tuple<IntfId, Published::Refusal, Published::MessageKind>,
               Refused>
         all;
      for ( const Logged& logged : evidence_.log ) {
         const Event& event = logged.event;
         if ( !concerns( logged ) || stands( event ) ) continue;
         Refused& refused = all[{ event.intf, event.refusal, event.message }];
         if ( refused.last != nullptr ) ++refused.others;
         if ( refused.last == nullptr || logged.last >= refused.last->last )
            refused.last = &logged;
      }
      for ( const auto& [of, refused] : all ) tell( refused );
   }

   bool concerns( const Logged& logged ) const {
      const Event& event = logged.event;
      const uint32_t version = mirror_.family == Vantu::AddressFamily::ipv4 ? 4 : 6;
      const RouteKey key{ event.source, event.group };
      const bool asked = event.group.isMulticast()
                            ? filter_.matches( key )
                            : !filter_.group && !filter_.source;
      // Hosts report of all families, also where this one has no address.
      return event.kind == Published::refused && event.value == 0 &&
             !isPolicy( event.refusal ) && event.refusal != Published::noAddress &&
             evidence_.now - logged.last < kAgain && event.ipVersion == version &&
             event.vrf.text() == mirror_.vrf() && asked &&
             filter_.matches( event.intf ) &&
             ( event.message == Published::reportMessage ||
               event.message == Published::joinPruneMessage ||
               ( event.message == Published::assertMessage &&
                 isDr( event.intf ) ) );
   }

   // Is it there by now, or its sender known?
   bool stands( const Event& event ) const {
      if ( event.refusal == Published::unknownNeighbor )
         return knows( event.intf, event.address );
      for ( const IpGenAddr& source :
            { event.source, IpGenAddr::unspecified( mirror_.family ) } ) {
         const Route* route =
            event.group.isMulticast()
               ? std::as_const( *mirror_.model ).route( { source, event.group } )
               : nullptr;
         const Intf* intf =
            route == nullptr ? nullptr : route->routeIntf( event.intf );
         if ( intf != nullptr && ( intf->localReceiverInclude() ||
                                   intf->joinState() != Intf::noInfo ) )
            return true;
      }
      return false;
   }

   void tell( const Refused& refused ) {
      const Event& event = refused.last->event;
      const RouteKey key = event.group.isMulticast()
                              ? RouteKey{ event.source, event.group }
                              : RouteKey();
      const std::string ago =
         spanText( evidence_.now - refused.last->last ) + " ago";
      if ( event.message == Published::assertMessage ) {
         if ( event.refusal == Published::unknownNeighbor )
            found(
               "two-drs", key, event.intf,
               fmt::format( "router {} has sent an assert {} and said no hello: "
                            "it forwards there, as this router does, which is DR",
                            whoText( event.address ), ago ),
               refusalsOf( event.intf ) );
         return;
      }
      const bool member = event.message == Published::reportMessage;
      const std::string others =
         refused.others == 0 ? "" : fmt::format( ", and {} more", refused.others );
      found( member ? "unserved" : "refused", key, event.intf,
             fmt::format( "what {} asked for {} was refused: {}{}",
                          whoText( event.address ), ago,
                          refusalText( event.refusal ), others ),
             refusalsOf( event.intf ) );
   }

   const Mirror& mirror_;
   const RouteFilter& filter_;
   const Evidence& evidence_;
   Checked& checked_;
};

}

void checkLinks( const Mirror& mirror, const RouteFilter& filter,
                 const Evidence& evidence, Checked& checked ) {
   LinkChecks( mirror, filter, evidence, checked ).check();
}

}
