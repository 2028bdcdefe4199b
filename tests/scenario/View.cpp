#include "tests/scenario/View.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "tests/scenario/Script.h"

namespace Scenario {
namespace {

namespace Sm = Routing::Pim::SparseMode;
using Router::RouterCounters;
using Router::VrfRouter;
using Sm::Intf;
using Sm::Route;

void add( std::string& text, const std::string& words ) {
   if ( words.empty() ) return;
   text += ( text.empty() ? "" : " " ) + words;
}

// A fact for each interface of each route; none if the text is empty.
template <class Text>
Facts ofIntfs( const VrfRouter& router, const Names& names, Text text ) {
   Facts out;
   for ( const Route& route : router.model().route() ) {
      for ( const Intf& intf : route.routeIntf() ) {
         const std::string words = text( intf );
         if ( words.empty() ) continue;
         out[std::string( intf.intfId().name() ) + ' ' + names.of( route.key() )] =
            words;
      }
   }
   return out;
}

Facts downstream( const VrfRouter& router, const RouterCounters&,
                  const Names& names ) {
   return ofIntfs( router, names, []( const Intf& intf ) {
      static const std::map<Intf::JoinState, const char*> kJoin = {
         { Intf::noInfo, "" },
         { Intf::joined, "joined" },
         { Intf::prunePending, "prune-pending" } };
      static const std::map<Intf::RptState, const char*> kPrune = {
         { Intf::rptNoInfo, "" },
         { Intf::rptPruned, "pruned" },
         { Intf::rptPrunePending, "rpt-prune-pending" } };
      std::string out = kJoin.at( intf.joinState() );
      add( out, kPrune.at( intf.rptState() ) );
      return out;
   } );
}

Facts members( const VrfRouter& router, const RouterCounters&,
               const Names& names ) {
   return ofIntfs( router, names, []( const Intf& intf ) {
      std::string out;
      if ( intf.localReceiverInclude() ) add( out, "wanted" );
      if ( intf.localReceiverExclude() ) add( out, "excluded" );
      if ( intf.localMembership() != intf.localReceiverInclude() )
         add( out, "with another membership" );
      return out;
   } );
}

Facts asserts( const VrfRouter& router, const RouterCounters&,
               const Names& names ) {
   return ofIntfs( router, names, [&names]( const Intf& intf ) -> std::string {
      switch ( intf.assertInfo().assertState ) {
         case Sm::iAmAssertWinner:
            return "won";
         case Sm::iAmAssertLoser:
            return "lost to " + names.of( intf.assertWinner() );
         default:
            return "";
      }
   } );
}

// "in eth0/eth2 out eth1 eth2+ not eth3 sends": the backup path behind the stroke;
// the records that forward, a plus for those that also do by the backup path; the
// records that do not.
Facts routes( const VrfRouter& router, const RouterCounters&, const Names& names ) {
   Facts out;
   for ( const Route& route : router.model().route() ) {
      std::set<std::string> forward;
      std::set<std::string> idle;
      for ( const Intf& intf : route.routeIntf() ) {
         std::string name( intf.intfId().name() );
         if ( intf.fastForward() ) name += '+';
         ( intf.forward() ? forward : idle ).insert( name );
      }
      std::string text = fmt::format( "in {}", route.rpf().intfId.name() );
      if ( route.umhFrr() != nullptr )
         text += fmt::format( "/{}", route.rpfFrr().intfId.name() );
      if ( !forward.empty() )
         add( text, fmt::format( "out {}", fmt::join( forward, " " ) ) );
      if ( !idle.empty() )
         add( text, fmt::format( "not {}", fmt::join( idle, " " ) ) );
      if ( !route.katExpired() ) add( text, "sends" );
      if ( route.spTree() && !route.wildCard() ) add( text, "spt" );
      if ( route.kernelStats().packets != 0 )
         add( text, fmt::format( "packets {}", route.kernelStats().packets ) );
      out[names.of( route.key() )] = text;
   }
   return out;
}

std::string pathText( const Routing::Pim::Rpf& rpf, bool attached,
                      const Names& names ) {
   if ( rpf == Routing::Pim::Rpf() ) return "nowhere";
   if ( attached ) return fmt::format( "on {}", rpf.intfId.name() );
   return fmt::format( "by {} {} [{}/{}]", rpf.intfId.name(),
                       names.of( rpf.neighbor ), rpf.preference, rpf.metric.value );
}

// "by eth0 192.0.2.254 [110/20] or on eth1, rp 198.51.100.1": the backup path behind the "or".
Facts paths( const VrfRouter& router, const RouterCounters&, const Names& names ) {
   Facts out;
   for ( const Route& route : router.model().route() ) {
      std::string text = pathText( route.rpf(), route.rpfAttached(), names );
      if ( const auto* backup = route.umhFrr() )
         text += " or " + pathText( backup->rpf(), backup->rpfAttached(), names );
      if ( route.wildCard() ) text += ", rp " + names.of( route.umh()->rp() );
      if ( !route.initialized() ) text += ", not initialized";
      if ( route.rpTree() == route.spTree() ) text += ", of no tree or two";
      if ( route.directlyConnected() != route.rpfAttached() && !route.wildCard() )
         text += ", connected or not";
      out["path of " + names.of( route.key() )] = text;
   }
   return out;
}

// The machine's action in the RFC's tables, and the times of messages.
Facts assertActions( const VrfRouter& router, const RouterCounters&,
                     const Names& names ) {
   return ofIntfs( router, names, []( const Intf& intf ) -> std::string {
      if ( intf.lastAssertAction() == 0 ) return "";
      return fmt::format( "action {} inferior {} preferred {}",
                          intf.lastAssertAction(), intf.rxInferiorAssert(),
                          intf.rxPreferredAssert() );
   } );
}

Facts upstream( const VrfRouter& router, const RouterCounters&,
                const Names& names ) {
   Facts out;
   for ( const Route& route : router.model().route() ) {
      static const std::map<Sm::UpRptState, const char*> kRpt = {
         { Sm::upRptNotPruned, "rpt-not-pruned" },
         { Sm::upRptNotJoined, "" },
         { Sm::upRptPruned, "rpt-pruned" } };
      std::string text = route.upJoinState() == Sm::upJoined ? "joined" : "";
      if ( !route.wildCard() ) add( text, kRpt.at( route.upRptState() ) );
      if ( !text.empty() ) out["up " + names.of( route.key() )] = text;
   }
   return out;
}

Facts neighbors( const VrfRouter& router, const RouterCounters&,
                 const Names& names ) {
   Facts out;
   const auto& table = router.writer().published()->neighbor();
   table.visit( [&]( const Published::Neighbor& each ) {
      out[std::string( each.key.intfId.name() ) + ' ' +
          names.of( each.key.address )] =
         each.since != 0.0 ? "neighbor" : "neighbor since when";
      return true;
   } );
   for ( const auto& intf : router.model().pimStatus()->intf() ) {
      std::string& text = out[std::string( intf.intfId().name() )];
      text = intf.iAmDr() ? "dr" : "not dr";
      if ( intf.addr().prefixLength < 24 )
         text += fmt::format( " of a /{}", intf.addr().prefixLength );
   }
   return out;
}

Facts registers( const VrfRouter& router, const RouterCounters&,
                 const Names& names ) {
   Facts out;
   const auto& tables = *router.writer().registers();
   auto tell = [&]( const auto& table, const char* word ) {
      for ( const auto& key : table.keys() ) add( out[names.of( key )], word );
   };
   tell( tables.registerOif(), "oif" );
   tell( tables.noRegisterOif(), "no-oif" );
   tell( tables.drDiscoveredSg(), "dr" );
   tell( tables.anycastDiscoveredSg(), "anycast" );
   return out;
}

Facts refusals( const VrfRouter&, const RouterCounters& counters, const Names& ) {
   Facts out;
   for ( uint32_t reason = 0; reason < Router::refusalCount; ++reason ) {
      const auto refusal = static_cast<Router::Refusal>( reason );
      const uint64_t count = counters.refusedCount( refusal );
      if ( count != 0 )
         out[std::string( "refused " ) + stringValue( refusal )] =
            std::to_string( count );
   }
   for ( uint32_t number = 1; number < Router::dropReasonCount; ++number ) {
      const auto reason = static_cast<Router::DropReason>( number );
      const uint64_t count = counters.droppedCount( reason );
      if ( count != 0 )
         out["dropped " + std::string( dropName( reason ) )] =
            std::to_string( count );
   }
   return out;
}

// All counts that are not zero, among them those of refusals.
Facts counts( const VrfRouter&, const RouterCounters& counters, const Names& ) {
   std::string text = counters.text();
   std::replace( text.begin(), text.end(), ';', ',' );
   return { { "counted", text } };
}

constexpr View kViews[] = { { "downstream", "left", downstream },
                            { "members", "unwanted", members },
                            { "asserts", "no assert", asserts },
                            { "assert-actions", "no action", assertActions },
                            { "paths", "gone", paths },
                            { "routes", "gone", routes },
                            { "upstream", "not joined", upstream },
                            { "neighbors", "lost", neighbors },
                            { "registers", "unregistered", registers },
                            { "refusals", nullptr, refusals },
                            { "counts", nullptr, counts } };

}

const View& viewOf( const std::string& name ) {
   for ( const View& view : kViews ) {
      if ( name == view.name ) return view;
   }
   throw ScriptError( "nothing to watch: " + name );
}

}
