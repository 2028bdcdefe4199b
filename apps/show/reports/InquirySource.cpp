#include "apps/show/reports/Inquiry.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/mirror/AgentTables.h"
#include "apps/mirror/KernelEntries.h"
#include "apps/mirror/Olist.h"
#include "apps/show/text/EventText.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Published::Event;
using Routing::Pim::RouteKey;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// Packets that came longer ago count as none.
constexpr double kSilence = 15.0;  // s
// Enough that some should have left.
constexpr uint64_t kSome = 5;

}

const Route* Inquiry::find( const IpGenAddr& source ) const {
   for ( const Route* each : ofGroup_ )
      if ( each->key().source == source ) return each;
   return nullptr;
}

// The (*,G) entry answers for a source that it carries. REQUIRES: somebody asks, so that
// there is one.
void Inquiry::chooseRoute() {
   const IpGenAddr any = IpGenAddr::unspecified( mirror_.family );
   if ( !receiver_.source.isUnspecified() ) route_ = find( receiver_.source );
   if ( route_ == nullptr ) route_ = find( any );
   if ( route_ == nullptr ) route_ = onlySource();
   step( Why::fine, "route",
         fmt::format( "{}, {}", keyText( route_->key() ), treeText( *route_ ) ) );
}

const Route* Inquiry::onlySource() const {
   for ( const Route* each : ofGroup_ )
      if ( each->routeIntf( intfId_ ) != nullptr ) return each;
   return nullptr;
}

void Inquiry::path() {
   const auto rp = facts_.rps().rp( receiver_.group );
   if ( facts_.rps().startsHere( *route_ ) )
      return step( Why::fine, "RP", "this router" );
   const Rpf& rpf = route_->incomingRpf();
   const std::string end = !shared() ? "source " + text( route_->key().source )
                           : rp      ? "RP " + text( *rp )
                                     : "the RP";
   if ( shared() && !facts_.rps().published() && rpf.intfId.empty() )
      return step( Why::unknown, "RP", "the agent publishes none" );
   if ( shared() && !rp && rpf.intfId.empty() )
      return fail( "RP",
                   fmt::format( "group {} has no RP in vrf {}",
                                text( receiver_.group ), vrfText( mirror_ ) ),
                   "no-rp", "configure one, under rps" );
   if ( shared() && rp ) step( Why::fine, "RP", text( *rp ) );
   if ( rpf.intfId.empty() )
      return fail( "path", "there is no way to " + end, "no-path",
                   "see ip route get, or the configuration's rpf-routes" );
   const std::string way = rpfText( rpf, route_->incomingAttached() );
   neighborOn( rpf, end, way );
}

void Inquiry::neighborOn( const Rpf& rpf, const std::string& end,
                          const std::string& way ) {
   if ( !isReady( mirror_.agent->neighbor() ) ||
        !isReady( mirror_.agent->interface() ) )
      return step( Why::unknown, "path", way );
   Published::Interface incoming;
   const bool there =
      mirror_.agent->interface().find( rpf.intfId, incoming ) == Brane::lookupFound;
   if ( !there )
      return fail(
         "path",
         fmt::format( "the way to {} is by {}, which is no interface of PIM "
                      "or is down",
                      end, nameText( rpf.intfId ) ),
         "rpf-interface-down", "set it up, or add it to the configuration" );
   const std::string fault = faultOf( rpf.intfId, incoming );
   if ( !fault.empty() )
      return fail( "path",
                   fmt::format( "the way to {} is by {}, which {}", end,
                                nameText( rpf.intfId ), fault ),
                   "rpf-interface-down", "set it up, or mend its cable" );
   Published::Neighbor neighbor;
   const bool known = facts_.neighbor( rpf.intfId, rpf.neighbor, neighbor );
   if ( !known && !facts_.speaks() )
      return step( Why::unknown, "path", way + ", of which no hello was heard" );
   if ( !known )
      return fail( "path",
                   fmt::format( "{}, the way to {}, has said no hello on {}",
                                rpf.neighbor.isUnspecified() ? "the next router"
                                                             : text( rpf.neighbor ),
                                end, nameText( rpf.intfId ) ),
                   "neighbor-unknown", "look there, and at pimsm-show neighbors" );
   lastJoins_ = neighbor.lastJoins;
   step( Why::fine, "path", way + ", a neighbor" );
}

// What a source's router brings to the RP.
void Inquiry::registers() {
   if ( !facts_.rps().startsHere( *route_ ) ) return;
   const Logged* barred =
      facts_.newest( receiver_.group, {}, [&]( const Event& event ) {
         return event.kind == Published::refused && concerns( event ) &&
                ( event.refusal == Published::barredRegister ||
                  event.refusal == Published::notTheRp );
      } );
   if ( barred == nullptr || arrives() ) return;
   if ( facts_.counterInterval() == 0.0 )
      return step( Why::unknown, "register",
                   fmt::format( "registers of {} were refused {}: {}; without "
                                "counters nobody knows what else comes",
                                text( barred->event.source ), ago( *barred ),
                                refusalText( barred->event.refusal ) ) );
   fail( "register",
         fmt::format( "registers of {} were refused {}: {}",
                      text( barred->event.source ), ago( *barred ),
                      refusalText( barred->event.refusal ) ),
         "register-barred", "see the configuration's register-filter" );
}

void Inquiry::upstream() {
   if ( facts_.rps().startsHere( *route_ ) ) return;
   if ( !facts_.speaks() )
      return step( Why::unknown, "upstream",
                   "this agent only listens: others join" );
   const Route* joins = shared() ? route_->wc() : route_;
   if ( joins == nullptr || joins->upJoinState() == Sm::upJoined )
      return step( Why::fine, "upstream",
                   lastJoins_ == 0.0 ? "joined"
                                     : "joined, joins repeated " +
                                          agoText( lastJoins_, evidence_.now ) );
   step( Why::bad, "upstream", "not joined" );
}

void Inquiry::forwards() {
   const Intf* own = route_->routeIntf( intfId_ );
   if ( own != nullptr && own->forward() )
      return step( Why::fine, "forwarding", nameText( intfId_ ) + " forwards" );
   if ( route_->incomingIntf() == intfId_ )
      return step( Why::fine, "forwarding",
                   fmt::format( "not needed: the packets come in by {} itself",
                                nameText( intfId_ ) ) );
   if ( own != nullptr && own->prunesSgRpt() )
      return fail(
         "forwarding",
         fmt::format( "a router on {} has pruned the source from the shared "
                      "tree",
                      nameText( intfId_ ) ),
         "source-pruned", "it takes the source's own tree: look there" );
   std::string turns;
   if ( own != nullptr ) {
      const auto changes = turnsOf( mirror_, *own, outgoingOf( mirror_, *own ) );
      if ( !changes.empty() ) turns = fmt::format( "; it would if {}", changes[0] );
   }
   fail( "forwarding",
         fmt::format( "{} does not forward {}{}", nameText( intfId_ ),
                      keyText( route_->key() ), turns ),
         "not-forwarding", "pimsm-show explain --terms tells why" );
}

// The forwarding process, and what it has told the kernel.
void Inquiry::kernel() {
   const auto& vifs = mirror_.mfib->vif();
   if ( !isReady( vifs ) ) {
      if ( !facts_.speaks() )
         return step( Why::unknown, "kernel", "no forwarding process tells of it" );
      return fail( "kernel", "no forwarding process has run for this VRF",
                   "no-mfib", "start pimsm-mfib, which makes the kernel forward" );
   }
   if ( !vifs.writerAlive() )
      return fail( "kernel", "pimsm-mfib is gone", "mfib-gone",
                   "start it; what the kernel had forwards on meanwhile" );
   Published::MfibVif vif;
   if ( vifs.find( intfId_, vif ) != Brane::lookupFound || vif.ifIndex == 0 )
      return fail(
         "kernel",
         fmt::format( "the kernel does not forward by {}", nameText( intfId_ ) ),
         "no-vif", "see what pimsm-mfib says of it" );
   sentOut_ = vif.packetsOut;
   // A (*,G) route at the RP itself has no entry.
   if ( !route_->wildCard() || !facts_.rps().startsHere( *route_ ) ) kernelEntry();
}

void Inquiry::kernelEntry() {
   const KernelEntries* kernel = facts_.kernel();
   if ( kernel == nullptr )
      return step(
         Why::unknown, "kernel",
         "pimsm-mfib serves it; this is not its host, or the agent is gone" );
   const RouteKey key = route_->key();
   if ( const Host::Entry* entry = kernel->find( key ) )
      return compare( *kernel, *entry );
   if ( !kernel->mayHave( key ) ) return noEntry( key );
   step( Why::unknown, "kernel", "an entry is there, perhaps of another VRF" );
}

void Inquiry::noEntry( const RouteKey& key ) {
   why_.again = true;
   const Logged* refused = facts_.newest( key.group, {}, [&]( const Event& event ) {
      return event.kind == Published::entryRefused && event.source == key.source;
   } );
   if ( refused != nullptr )
      return fail( "kernel", "the kernel has refused the entry " + ago( *refused ),
                   "entry-refused", "see what pimsm-mfib says" );
   fail( "kernel", fmt::format( "the kernel has no entry of {}", keyText( key ) ),
         "entry-missing", "somebody removed it: restart pimsm-mfib" );
}

// Only what the kernel does by the receiver's interface, or the incoming one, is trouble.
void Inquiry::compare( const KernelEntries& kernel, const Host::Entry& entry ) {
   const auto all = kernel.differences( *route_, entry );
   const std::string is = kernel.text( *route_, entry );
   if ( all.empty() ) return step( Why::fine, "kernel", "has the entry: " + is );
   why_.again = true;
   const EntryDifference* his = nullptr;
   std::string should;
   for ( const EntryDifference& each : all ) {
      const char* const kDoes[] = { "not send by ", "send by ", "take none from " };
      should +=
         ( should.empty() ? "" : " and " ) +
         ( kDoes[each.kind] + ( each.intfId.empty() ? "an interface that has gone"
                                                    : nameText( each.intfId ) ) );
      const bool matters =
         each.kind == EntryDifference::takes ||
         ( each.kind == EntryDifference::lacks && each.intfId == intfId_ );
      if ( matters && his == nullptr ) his = &each;
   }
   const std::string text =
      fmt::format( "the kernel's entry of {} is {}, and by the table should {}",
                   keyText( route_->key() ), is, should );
   if ( his == nullptr ) return step( Why::bad, "kernel", text );
   if ( his->bounded )
      return fail( "kernel", text, "boundary",
                   "a boundary in the configuration may bar it" );
   fail( "kernel", text, "entry-differs",
         "restart pimsm-mfib, and see what it says" );
}

Inquiry::Flow Inquiry::flow() const {
   Flow out;
   for ( const Published::MfibCache& entry : facts_.counters( receiver_.group ) ) {
      const RouteKey& key = entry.key;
      const bool asked = receiver_.source.isUnspecified() ||
                         key.source == receiver_.source ||
                         ( route_->wildCard() && key.source.isUnspecified() );
      if ( !asked ) continue;
      out.packets += entry.packets;
      out.last = std::max( out.last, entry.lastPacket );
      if ( evidence_.rates == nullptr ) continue;
      if ( const auto rate = evidence_.rates->at( &mirror_ ).rate( key ) )
         out.rate = out.rate.value_or( 0.0 ) + rate->packets;
   }
   return out;
}

std::string Inquiry::rateText( const Flow& flow ) const {
   if ( !flow.rate || !countedOften() ) return "";
   return fmt::format( "; {} by pimsm-mfib's counters, read twice within {}",
                       packetsText( *flow.rate ), spanText( evidence_.interval ) );
}

bool Inquiry::arrives() const {
   const Flow is = flow();
   return is.last != 0.0 && evidence_.now - is.last <
                               kSilence + facts_.counterInterval().value_or( 0.0 );
}

bool Inquiry::countedOften() const {
   constexpr double kUsual = 1.0;  // s
   const auto interval = facts_.counterInterval();
   return !interval || ( *interval > 0.0 &&
                         *interval <= std::max( kUsual, evidence_.interval ) );
}

// Where packets come in that should not; empty: nowhere.
IntfId Inquiry::wrongSide() const {
   for ( const Published::MfibUpcall& upcall : facts_.upcalls( receiver_.group ) ) {
      const Routing::Pim::RouteIntfKey& key = upcall.key;
      const bool asked = receiver_.source.isUnspecified() ||
                         key.routeKey.source == receiver_.source;
      if ( asked && upcall.kind == Published::wrongVifUpcall &&
           evidence_.now - upcall.last < kSilence &&
           key.intfId != route_->incomingIntf() && key.intfId != intfId_ )
         return key.intfId;
   }
   return {};
}

void Inquiry::packets() {
   if ( !isReady( mirror_.mfib->cache() ) ) return;
   const Flow is = flow();
   if ( facts_.counterInterval() == 0.0 && !arrives() )
      return step( Why::unknown, "packets",
                   "pimsm-mfib publishes no counters: --counters is 0" );
   // Those of interfaces are published apart.
   why_.again = why_.again || evidence_.rates == nullptr;
   if ( !arrives() ) return silence( is );
   const bool needed = route_->incomingIntf() != intfId_ && countedOften();
   // Not for what came before the interface was wanted.
   const bool many = evidence_.rates == nullptr
                        ? is.packets > kSome
                        : is.rate.value_or( 0.0 ) * evidence_.interval > kSome;
   if ( needed && sentOut_ && *sentOut_ == 0 && many )
      return fail(
         "packets",
         fmt::format( "packets come, and none has left by {}",
                      nameText( intfId_ ) ),
         "ttl", "their TTL may be too small, or they may be larger than its MTU" );
   const IntfId in = route_->incomingIntf();
   step( Why::fine, "packets",
         fmt::format( "{} came{}, the last {}{}", is.packets,
                      in.empty() ? "" : " by " + nameText( in ),
                      agoText( is.last, evidence_.now ), rateText( is ) ) );
}

void Inquiry::silence( const Flow& is ) {
   const std::string since = is.last == 0.0
                                ? "no packet of " + what() + " has come"
                                : "the last packet of " + what() + " came " +
                                     agoText( is.last, evidence_.now );
   const IntfId wrong = wrongSide();
   const IntfId right = route_->incomingIntf();
   if ( !wrong.empty() )
      return fail(
         "packets",
         fmt::format( "packets come by {}, but the way to the source is by {}",
                      nameText( wrong ),
                      right.empty() ? "no interface" : nameText( right ) ),
         "wrong-interface",
         "mend the unicast route to the source, or the path of its packets" );
   if ( !route_->wildCard() && route_->switching() )
      return fail( "packets",
                   since +
                      ", and the source's own tree has brought none yet "
                      "(SPT bit clear)",
                   "spt-waits", "look at the next router to the source" );
   if ( route_->incomingAttached() && !shared() )
      return fail( "packets", since, "source-silent",
                   fmt::format( "the source on {} sends nothing, or with TTL 1 "
                                "elsewhere",
                                nameText( right ) ) );
   if ( facts_.rps().startsHere( *route_ ) )
      return fail( "packets", since, "not-registered",
                   "no first hop registers a source here: look at the source's "
                   "router" );
   const IpGenAddr& next = route_->incomingRpf().neighbor;
   fail( "packets", since, "nothing-arrives",
         next.isUnspecified() ? "look at the next router"
                              : "look at the next router, " + text( next ) );
}

}
