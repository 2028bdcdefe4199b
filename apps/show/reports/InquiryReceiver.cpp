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

namespace {

std::string text( const IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

}

Why Inquiry::answer() {
   agent();
   if ( !interface() ) return std::move( why_ );
   if ( !wanted() ) return std::move( why_ );
   designated();
   chooseRoute();
   if ( route_ == nullptr ) return std::move( why_ );
   if ( !route_->directlyConnected() || route_->wildCard() ) {
      path();
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
   const Host::Link* link = hostLink();
   if ( link != nullptr && !link->up )
      fail( "link", nameText( intfId_ ) + " is down", "interface-down",
            "set it up, or mend its cable" );
   chooseRoute();
   if ( route_ == nullptr ) return std::move( why_ );
   if ( !route_->directlyConnected() || route_->wildCard() ) path();
   kernel();
   const IntfId wrong = wrongSide();
   if ( !wrong.empty() && !arrives() )
      fail( "packets", "packets come by " + nameText( wrong ), "wrong-interface",
            "the way to the source is another one" );
   return std::move( why_ );
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
   std::string sentence = evidence;
   sentence[0] = static_cast<char>( std::toupper( sentence[0] ) );
   trouble( cause, sentence + ": " + remedy + '.' );
}

const Logged* Inquiry::newest(
   const std::function<bool( const Event& )>& wanted ) const {
   const std::string vrf = mirror_.vrf();
   const uint32_t version = mirror_.family == Vantu::AddressFamily::ipv4 ? 4 : 6;
   for ( auto each = evidence_.log.rbegin(); each != evidence_.log.rend();
         ++each ) {
      const Event& event = each->event;
      if ( event.ipVersion == version && event.vrf.text() == vrf &&
           wanted( event ) )
         return &*each;
   }
   return nullptr;
}

bool Inquiry::concerns( const Event& event ) const {
   return event.group == receiver_.group &&
          ( event.source.isUnspecified() || receiver_.source.isUnspecified() ||
            event.source == receiver_.source );
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
   if ( intfId_.empty() ) {
      fail( "interface",
            fmt::format( "no interface of vrf {} has the network of {}",
                         vrfText( mirror_ ), text( receiver_.host ) ),
            "no-such-network", "see pimsm-show interfaces" );
      return false;
   }
   const bool known =
      mirror_.agent->interface().find( intfId_, published_ ) == Brane::lookupFound;
   if ( known && !published_.address.isUnspecified() ) return linked();
   if ( !isReady( mirror_.agent->interface() ) ) {
      step( Why::unknown, "interface", noInterfacesText( mirror_ ) );
      return true;
   }
   const auto [cause, says, remedy] = absence();
   fail( "interface", says, cause, remedy );
   return false;
}

// A link that is down is told late, or never, where the agent only listens.
bool Inquiry::linked() {
   const Host::Link* link = hostLink();
   step( Why::fine, "interface",
         fmt::format( "{} has {}/{}", nameText( intfId_ ),
                      text( published_.address ), published_.prefixLength ) );
   if ( link != nullptr && !link->up )
      fail( "link", nameText( intfId_ ) + " is down", "interface-down",
            "set it up, or mend its cable" );
   return true;
}

const Host::Link* Inquiry::hostLink() const {
   if ( !host_.links || !mirror_.writerAlive() ) return nullptr;
   const auto found = host_.links->find( std::string( intfId_.name() ) );
   return found == host_.links->end() ? nullptr : &found->second;
}

Inquiry::Absence Inquiry::absence() const {
   const std::string name = nameText( intfId_ );
   const Host::Link* link = hostLink();
   const bool ipv4 = mirror_.family == Vantu::AddressFamily::ipv4;
   if ( link == nullptr && host_.links && mirror_.writerAlive() )
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
   const Logged* told = newest( [&]( const Event& event ) {
      return event.kind == Published::memberCame && event.intf == intfId_ &&
             concerns( event ) && !event.address.isUnspecified();
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

// Why not: it was refused, has ended, or was never asked for.
// It was refused, has ended, or was never asked for. What is refused as a whole names
// no group.
void Inquiry::notWanted() {
   const auto here = [&]( const Event& event ) {
      return event.intf == intfId_ || event.intf.empty();
   };
   const Logged* told = newest( [&]( const Event& event ) {
      const bool ofHost =
         event.kind == Published::refused && event.group == IpGenAddr() &&
         !receiver_.host.isUnspecified() && event.address == receiver_.host;
      return here( event ) && ( concerns( event ) || ofHost ) &&
             ( event.kind == Published::refused ||
               event.kind == Published::memberGone ||
               event.kind == Published::joinGone );
   } );
   if ( told == nullptr )
      told = newest( [&]( const Event& event ) {
         return event.kind == Published::refused && event.intf == intfId_ &&
                event.group == IpGenAddr();
      } );
   if ( told != nullptr ) return refusedOrEnded( *told );
   fail( "member", "nobody on " + nameText( intfId_ ) + " asks for " + what(),
         "no-member", "look at the receiver; members are reported by IGMP or MLD" );
}

void Inquiry::refusedOrEnded( const Logged& told ) {
   const Event& event = told.event;
   const bool known = !event.address.isUnspecified();
   if ( event.kind == Published::refused )
      return fail( "member",
                   fmt::format( "what {} asked for {} was refused: {}",
                                known ? text( event.address ) : "somebody",
                                ago( told ), refusalText( event.refusal ) ),
                   "refused-" + valueToStrep( event.refusal ),
                   "pimsm-show log --event refused tells more" );
   const bool member = event.kind == Published::memberGone;
   const bool expired = event.cause == Published::byExpiry;
   const std::string whose =
      member ? "the membership"
             : "the join of " + ( known ? text( event.address ) : "a router" );
   const char* remedy = "the host has left";
   if ( !member ) remedy = "the router has left: look there";
   if ( expired )
      remedy = member ? "the host stopped answering queries"
                      : "the router stopped sending it: look there";
   const char* cause = member ? "left" : "pruned";
   if ( expired ) cause = member ? "membership-expired" : "join-expired";
   fail(
      "member",
      fmt::format( "{} {} {}", whose, expired ? "expired" : "ended", ago( told ) ),
      cause, remedy );
}

void Inquiry::designated() {
   for ( const IpGenAddr& source :
         { receiver_.source, IpGenAddr::unspecified( mirror_.family ) } ) {
      const Intf* each = record( source );
      if ( each == nullptr ) continue;
      const Sm::AssertInfo& info = each->assertInfo();
      if ( info.assertState == Sm::iAmAssertLoser )
         return fail( "assert",
                      fmt::format( "router {} won the assert on {}",
                                   text( info.assertWinnerMetric.address ),
                                   nameText( intfId_ ) ),
                      "assert-lost", "it serves the link: look there" );
      if ( info.assertState == Sm::iAmAssertWinner )
         return step( Why::fine, "assert", "won: this router serves the link" );
   }
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
