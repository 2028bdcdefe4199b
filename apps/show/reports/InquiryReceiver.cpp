#include "apps/show/reports/Inquiry.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/mirror/AgentTables.h"
#include "apps/show/text/EventText.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Published::Event;
using Routing::Pim::RouteKey;
using Vantu::IntfId;
using Vantu::IpGenAddr;

Why Inquiry::answer() {
   agent();
   if ( !interface() ) return std::move( why_ );
   if ( !wanted() ) return std::move( why_ );
   designated();
   chooseRoute();
   if ( !route_->directlyConnected() || route_->wildCard() ) {
      path();
      registers();
      upstream();
   }
   forwards();
   kernel();
   packets();
   if ( why_.cause.empty() )
      why_.verdict = fmt::format( "{} gets {}: nothing stands in the way here.",
                                  nameText( intfId_ ), what() );
   return std::move( why_ );
}

Why Inquiry::contradictions() {
   mirror_.agent->interface().find( intfId_, published_ );
   wishes();
   if ( !member_ && !joined_ ) return {};
   if ( !serves() ) return {};
   linked();
   chooseRoute();
   if ( !route_->directlyConnected() || route_->wildCard() ) path();
   kernel();
   return std::move( why_ );
}

// Is the link's other end this router's to serve?
bool Inquiry::serves() const {
   if ( joined_ || published_.iAmDr || !isReady( mirror_.agent->interface() ) )
      return true;
   for ( const IpGenAddr& source :
         { receiver_.source, IpGenAddr::unspecified( mirror_.family ) } ) {
      const Intf* each = record( source );
      if ( each != nullptr && each->forward() ) return true;
   }
   return false;
}

std::string Inquiry::what() const {
   return receiver_.source.isUnspecified()
             ? "group " + text( receiver_.group )
             : keyText( { receiver_.source, receiver_.group } );
}

void Inquiry::step( Why::Mark mark, const char* what,
                    const std::string& evidence ) {
   why_.chain.push_back( { mark, what, evidence } );
}

// The first trouble is the verdict.
void Inquiry::trouble( const std::string& cause, const std::string& verdict ) {
   if ( !why_.cause.empty() ) return;
   why_.cause = cause;
   why_.verdict = verdict;
}

// A step that fails, and what follows from it.
void Inquiry::fail( const char* what, const std::string& evidence,
                    const std::string& cause, const std::string& remedy ) {
   step( Why::bad, what, evidence );
   const auto sentence = [this]( std::string text ) {
      const bool name = text.rfind( nameText( intfId_ ) + ' ', 0 ) == 0 ||
                        text.rfind( "pimsm-", 0 ) == 0;
      if ( !name ) text[0] = static_cast<char>( std::toupper( text[0] ) );
      return text + '.';
   };
   trouble( cause, sentence( evidence ) + ' ' + sentence( remedy ) );
}

// Of an event of the group.
bool Inquiry::concerns( const Event& event ) const {
   return event.source.isUnspecified() || receiver_.source.isUnspecified() ||
          event.source == receiver_.source;
}

std::string Inquiry::ago( const Logged& logged ) const {
   return spanText( evidence_.now - logged.last ) + " ago";
}

void Inquiry::agent() {
   if ( mirror_.writerAlive() ) return step( Why::fine, "agent", "runs" );
   fail( "agent", "pimsm-agent is gone, and with it who keeps the state",
         "agent-gone", "start it; what the kernel had forwards on meanwhile" );
}

// Is the interface one of PIM's, and up?
bool Inquiry::interface() {
   if ( intfId_.empty() && mirror_.agent->ownAddress().size() == 0 ) {
      step( Why::unknown, "interface", "the agent publishes no networks" );
      why_.verdict = "The receiver's network is not known. Name its interface.";
      return false;
   }
   if ( intfId_.empty() ) {
      fail( "interface",
            fmt::format( "no interface of vrf {} has the network of {}",
                         vrfText( mirror_ ), text( receiver_.host ) ),
            "no-such-network", "see pimsm-show interfaces" );
      return false;
   }
   const bool known =
      mirror_.agent->interface().find( intfId_, published_ ) == Brane::lookupFound;
   if ( known && !published_.address.isUnspecified() ) {
      step( Why::fine, "interface",
            fmt::format( "{} has {}/{}", nameText( intfId_ ),
                         text( published_.address ), published_.prefixLength ) );
      linked();
      return true;
   }
   if ( !isReady( mirror_.agent->interface() ) ) {
      step( Why::unknown, "interface", noInterfacesText( mirror_ ) );
      return true;
   }
   const auto [cause, says, remedy] = absence();
   fail( "interface", says, cause, remedy );
   return false;
}

void Inquiry::linked() {
   const std::string fault = faultOf( intfId_, published_ );
   if ( !fault.empty() )
      fail( "link", nameText( intfId_ ) + ' ' + fault, "interface-down",
            "set it up, or mend its cable" );
}

// What this host says counts before what the agent has last heard of it.
std::string Inquiry::faultOf( IntfId intfId,
                              const Published::Interface& published ) const {
   const Host::Link* link = facts_.link( intfId );
   if ( link != nullptr ) return link->up ? "" : "is down";
   if ( published.link == Published::linkDown )
      return "is down, or without its address";
   return published.link == Published::linkWithoutCarrier ? "has no carrier" : "";
}

Inquiry::Absence Inquiry::absence() const {
   const std::string name = nameText( intfId_ );
   const Host::Link* link = facts_.link( intfId_ );
   const bool ipv4 = mirror_.family == Vantu::AddressFamily::ipv4;
   if ( link == nullptr && facts_.knowsLinks() )
      return { "no-such-interface", "this host has no interface " + name,
               "make it, or mend the configuration's name of it" };
   if ( link != nullptr && !link->up )
      return { "interface-down", name + " is down", "set it up" };
   if ( link != nullptr && !ipv4 && link->ipv6 && !link->linkLocal )
      return { "no-link-local", name + " has no link-local IPv6 address",
               "give it one: PIM speaks from it" };
   if ( link != nullptr && !( ipv4 ? link->ipv4 : link->ipv6 ) )
      return {
         "no-address",
         fmt::format( "{} has no {} address", name, familyName( mirror_.family ) ),
         "give it one" };
   return { "not-configured",
            fmt::format( "{} is no interface of PIM in vrf {}", name,
                         vrfText( mirror_ ) ),
            "add it to the configuration, and send SIGHUP to pimsm-agent" };
}

const Intf* Inquiry::record( const IpGenAddr& source ) const {
   const Route* route = find( source );
   return route == nullptr ? nullptr : route->routeIntf( intfId_ );
}

bool Inquiry::asked( const Route& route ) const {
   return route.wildCard() || receiver_.source.isUnspecified() ||
          route.key().source == receiver_.source;
}

// The interface's records of the routes in question.
std::vector<const Intf*> Inquiry::wishes() {
   std::vector<const Intf*> records;
   for ( const Route* route : ofGroup_ ) {
      const Intf* intf = route->routeIntf( intfId_ );
      if ( !asked( *route ) || intf == nullptr ) continue;
      records.push_back( intf );
      member_ = member_ || intf->localReceiverInclude();
      joined_ = joined_ || intf->joinState() != Intf::noInfo;
   }
   return records;
}

// Does a member or a router ask for it on the interface?
bool Inquiry::wanted() {
   const std::vector<const Intf*> records = wishes();
   const Intf* own =
      receiver_.source.isUnspecified() ? nullptr : record( receiver_.source );
   if ( own != nullptr && own->localReceiverExclude() && !joined_ ) {
      fail( "member", "the hosts on " + nameText( intfId_ ) + " exclude the source",
            "source-excluded", "ask the host" );
      return false;
   }
   if ( !member_ && !joined_ ) return notWanted(), false;
   std::string who = member_ ? memberText() : "";
   if ( joined_ ) who += ( who.empty() ? "" : "; " ) + joinText( records );
   step( Why::fine, member_ ? "member" : "join", who );
   return true;
}

// Who asked first, by which version, until when, and who asks the hosts.
std::string Inquiry::memberText() const {
   const Logged* told =
      facts_.newest( receiver_.group, intfId_, [&]( const Event& event ) {
         return event.kind == Published::memberCame && concerns( event ) &&
                !event.address.isUnspecified();
      } );
   std::string out = "hosts on " + nameText( intfId_ ) + " ask for it";
   if ( told != nullptr )
      out +=
         fmt::format( ", first {} {}", text( told->event.address ), ago( *told ) );
   for ( const Route* route : ofGroup_ ) {
      Published::Downstream timers;
      if ( mirror_.agent->downstream().find( { route->key(), intfId_ }, timers ) !=
           Brane::lookupFound )
         continue;
      if ( timers.memberVersion != 0 )
         out += fmt::format( ", by version {}", timers.memberVersion );
      if ( timers.memberUntil > evidence_.now )
         out += ", asked whether they stay, " +
                spanText( timers.memberUntil - evidence_.now ) + " left";
   }
   if ( published_.querier.isUnspecified() ) return out;
   return out + "; querier " +
          ( published_.querier == published_.address ? "this router"
                                                     : text( published_.querier ) );
}

std::string Inquiry::joinText( const std::vector<const Intf*>& records ) const {
   double last = 0.0;
   for ( const Intf* each : records )
      if ( each->joinState() != Intf::noInfo )
         last = std::max( last, each->lastJoinReceived() );
   return fmt::format( "routers on {} join it, last {}", nameText( intfId_ ),
                       agoText( last, evidence_.now ) );
}

// It was refused, has ended, or was never asked for. What is refused as a whole names
// no group. A host or router asks again within its interval.
void Inquiry::notWanted() {
   if ( receiver_.group.isLinkLocalMulticast() )
      return fail( "group", text( receiver_.group ) + " never leaves its link",
                   "link-local-group", "no router forwards it" );
   const auto asks = [&]( const Event& event ) {
      return event.value == 0 && ( event.message == Published::reportMessage ||
                                   event.message == Published::joinPruneMessage );
   };
   const Logged* told =
      facts_.newest( receiver_.group, intfId_, [&]( const Event& event ) {
         return concerns( event ) &&
                ( ( event.kind == Published::refused && asks( event ) ) ||
                  event.kind == Published::memberGone ||
                  event.kind == Published::joinGone );
      } );
   const Logged* whole =
      facts_.newest( IpGenAddr(), intfId_, [&]( const Event& event ) {
         return event.kind == Published::refused && asks( event ) &&
                ( receiver_.host.isUnspecified() ||
                  event.address == receiver_.host );
      } );
   if ( whole != nullptr && ( told == nullptr || whole->last >= told->last ) )
      told = whole;
   const bool old = told != nullptr && told->event.kind == Published::refused &&
                    evidence_.now - told->last > kAgain;
   if ( told == nullptr || old )
      return fail(
         "member", "nobody on " + nameText( intfId_ ) + " asks for " + what(),
         "no-member", "look at the receiver: members are reported by IGMP or MLD" );
   if ( told->event.kind == Published::refused ) return refused( *told );
   ended( *told );
}

void Inquiry::refused( const Logged& told ) {
   const Event& event = told.event;
   fail( "member",
         fmt::format(
            "what {} asked for {} was refused: {}",
            event.address.isUnspecified() ? "somebody" : text( event.address ),
            ago( told ), refusalText( event.refusal ) ),
         "refused-" + valueToStrep( event.refusal ),
         "pimsm-show log --event refused tells more" );
}

void Inquiry::ended( const Logged& told ) {
   const Event& event = told.event;
   const bool member = event.kind == Published::memberGone;
   const std::string whose = member
                                ? "the membership"
                                : "the join of " + ( event.address.isUnspecified()
                                                        ? "a router"
                                                        : text( event.address ) );
   struct Row {
      const char *cause, *says, *remedy;
   };
   Row row = member ? Row{ "left", "ended", "the host has left" }
                    : Row{ "pruned", "ended", "the router has left: look there" };
   if ( event.cause == Published::byExpiry )
      row = member ? Row{ "membership-expired", "expired",
                          "the host stopped answering queries" }
                   : Row{ "join-expired", "expired",
                          "the router stopped sending it: look there" };
   if ( event.cause == Published::byInterface )
      row = { "interface-went", "ended with the interface",
              "the interface went down, or lost its address; who asked has to ask "
              "again" };
   if ( event.cause == Published::byConfiguration )
      row = { "configured-away", "was ended by the configuration",
              "see the filters and boundaries of the interface" };
   fail( "member", fmt::format( "{} {} {}", whose, row.says, ago( told ) ),
         row.cause, row.remedy );
}

void Inquiry::designated() {
   const Sm::AssertInfo* lost = nullptr;
   for ( const IpGenAddr& source :
         { receiver_.source, IpGenAddr::unspecified( mirror_.family ) } ) {
      const Intf* each = record( source );
      if ( each == nullptr ) continue;
      const Sm::AssertInfo& info = each->assertInfo();
      if ( each->forward() )
         return step( Why::fine, "router",
                      info.assertState == Sm::iAmAssertWinner
                         ? "this one serves the link: it won the assert"
                         : "this one serves the link" );
      if ( info.assertState != Sm::iAmAssertLoser ) continue;
      lost = &info;
      break;
   }
   if ( lost != nullptr )
      return fail( "assert",
                   fmt::format( "router {} won the assert on {}",
                                text( lost->assertWinnerMetric.address ),
                                nameText( intfId_ ) ),
                   "assert-lost", "it serves the link: look there" );
   if ( !isReady( mirror_.agent->interface() ) ) return;
   if ( published_.iAmDr ) return step( Why::fine, "DR", "this router" );
   const std::string dr = published_.dr.isUnspecified()
                             ? "another router"
                             : "router " + text( published_.dr );
   if ( joined_ )
      return step( Why::fine, "DR", dr + "; the joins are addressed to this one" );
   fail( "DR", fmt::format( "{} is DR on {}", dr, nameText( intfId_ ) ), "not-dr",
         "it serves the hosts: look there" );
}

}
