#include "apps/show/text/RouteText.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "apps/json/YangData.h"
#include "apps/mirror/Rps.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;

namespace {

std::string metricText( const Rpf& rpf ) {
   if ( rpf == Rpf() ) return "none";
   return fmt::format( "{}/{}", rpf.preference, rpf.metric.value );
}

std::string nameOrNone( Vantu::IntfId intfId ) {
   return intfId.empty() ? "none" : nameText( intfId );
}

std::string yesNo( bool value ) {
   return value ? "yes" : "no";
}

// "prune pending (prunePending)": the word, and the state for those who know it.
template <class State>
std::string stateText( State state, const char* prefix = "" ) {
   const Mox::String name = stringValue( state );
   std::string word = yangName( name, prefix );
   std::replace( word.begin(), word.end(), '-', ' ' );
   return word == name ? word : fmt::format( "{} ({})", word, name );
}

std::string assertStateText( Sm::AssertState state ) {
   const char* word = state == Sm::iAmAssertWinner  ? "won"
                      : state == Sm::iAmAssertLoser ? "lost"
                                                    : "no info";
   return fmt::format( "{} ({})", word, stringValue( state ) );
}

// "lost (A2)": the actions of RFC 7761, 4.6.1 and 4.6.2.
std::string actionText( uint8_t action ) {
   constexpr const char* kWords[] = { "won",       "lost",      "sent again",
                                      "cancelled", "forgotten", "lost" };
   if ( action == 0 ) return "none";
   if ( action > std::size( kWords ) ) return fmt::format( "unknown ({})", action );
   return fmt::format( "{} (A{})", kWords[action - 1], action );
}

template <class Out>
void field( Out out, const char* indent, const char* name,
            const std::string& value ) {
   fmt::format_to( out, "{}{:<25}{}\n", indent, name, value );
}

std::string rpText( const Rps& rps, const Route& route ) {
   using Mapping = Published::GroupRanges::Mapping;
   const Mapping mapping = rps.mapping( route.key().group );
   if ( mapping.rule == Mapping::sourceSpecific ) return "none, source-specific";
   if ( mapping.rule == Mapping::none ) return "none";
   if ( mapping.rule == Mapping::unknown ) return "unknown";
   return Vantu::valueToStrep( mapping.rp ) +
          ( mapping.own ? ", this router" : "" );
}

std::string rateText( const RouteForm& form, const Route& route ) {
   const auto rate = form.rates->rate( route.key() );
   return rate ? packetsText( rate->packets ) + ", " + bitsText( rate->bits )
               : "unknown rate";
}

void trafficDetail( std::string& text, const RouteForm& form, const Route& route,
                    double now ) {
   auto out = std::back_inserter( text );
   constexpr const char* indent = "      ";
   const auto* counters =
      form.rates == nullptr ? nullptr : form.rates->counters( route.key() );
   field(
      out, indent, "packets",
      counters == nullptr
         ? "unknown"
         : fmt::format( "{}, {} bytes, last {}", counters->packets, counters->bytes,
                        agoText( counters->lastPacket, now ) ) );
   if ( counters != nullptr )
      field( out, indent, "wrong interface", std::to_string( counters->wrongIf ) );
   if ( form.rated ) field( out, indent, "rate", rateText( form, route ) );
}

void routeDetail( std::string& text, const Route& route ) {
   auto out = std::back_inserter( text );
   constexpr const char* indent = "      ";
   field( out, indent, "flags", route.routeFlagsString() );
   field( out, indent, "rpf", rpfText( route.rpf(), route.rpfAttached() ) );
   field( out, indent, "rpf metric", metricText( route.rpf() ) );
   field( out, indent, "previous rpf", rpfText( route.prevRpf(), false ) );
   field( out, indent, "previous rpf metric", metricText( route.prevRpf() ) );
   field( out, indent, "fast-reroute rpf",
          rpfText( route.rpfFrr(), route.rpfFrrAttached() ) );
   field( out, indent, "fast-reroute rpf metric", metricText( route.rpfFrr() ) );
   field( out, indent, "border router interface", nameOrNone( route.mbrIif() ) );
   field( out, indent, "interface switch", stateText( route.iifSwitchState() ) );
   field( out, indent, "switch pending", yesNo( route.iifSwitchPending() ) );
   field( out, indent, "upstream join state",
          stateText( route.upJoinState(), "up" ) );
   field( out, indent, "upstream rpt state",
          stateText( route.upRptState(), "upRpt" ) );
}

void intfDetail( std::string& text, const Intf& intf, double now ) {
   auto out = std::back_inserter( text );
   constexpr const char* indent = "          ";
   field( out, indent, "forwards in a failover", yesNo( intf.fastForward() ) );
   field( out, indent, "join state", stateText( intf.joinState() ) );
   field( out, indent, "last join", agoText( intf.lastJoinReceived(), now ) );
   field( out, indent, "rpt state", stateText( intf.rptState(), "rpt" ) );
   field( out, indent, "last rpt prune",
          agoText( intf.lastRptPruneReceived(), now ) );
   field( out, indent, "assert state",
          assertStateText( intf.assertInfo().assertState ) );
   if ( intf.assertInfo().assertState != Sm::assertNoInfo ) {
      field( out, indent, "assert winner",
             valueToStrep( intf.assertInfo().assertWinnerMetric ) );
   }
   field( out, indent, "last assert action",
          actionText( intf.lastAssertAction() ) );
   field( out, indent, "local receiver include",
          yesNo( intf.localReceiverInclude() ) );
   field( out, indent, "local receiver exclude",
          yesNo( intf.localReceiverExclude() ) );
   field( out, indent, "to be deleted", yesNo( intf.toBeDeleted() ) );
   field( out, indent, "allow rp in use", yesNo( intf.allowRpInUse() ) );
}

}

Columns columnsFor( const std::vector<const Route*>& routes,
                    const RouteFilter& filter ) {
   Columns columns;
   for ( const Route* route : routes ) {
      columns.key = std::max( columns.key, keyText( route->key() ).size() );
      for ( const Intf* intf : selectIntfs( *route, filter ) )
         columns.intf = std::max( columns.intf, nameText( intf->intfId() ).size() );
   }
   return columns;
}

std::string routeLine( const Route& route, const Columns& columns, double now,
                       bool startsHere ) {
   const Rpf incoming = route.incomingRpf();
   return fmt::format(
      "{:<{}}  {:>7}  {}  {}{}{}\n", keyText( route.key() ), columns.key,
      route.creationTime() == 0.0 ? "unknown"
                                  : spanText( now - route.creationTime() ),
      treeText( route ), incoming == Rpf() ? "" : "in ",
      startsHere ? "from its RP, this router"
                 : rpfText( incoming, route.incomingAttached() ),
      route.upJoinState() == Sm::upJoined ? "  upstream joined" : "" );
}

std::string intfLine( const Intf& intf, const Columns& columns, double now ) {
   return lineText( fmt::format( "    {:<{}}  {:<16}  {}",
                                 nameText( intf.intfId() ), columns.intf,
                                 forwardText( intf ), intfReason( intf, now ) ) );
}

std::string routesHeading( const Mirror& mirror, size_t matching ) {
   size_t all = mirror.model->route().size();
   std::string count = countText( all, "route" );
   if ( matching != all ) count = fmt::format( "{} of {}", matching, count );
   return headingText( mirror, count );
}

namespace {

// A key by which most comes first, and what is not known last.
double weight( const RouteForm& form, const Route& route ) {
   if ( form.sort == "rate" ) {
      const auto rate = form.rates->rate( route.key() );
      return rate ? rate->packets : -1.0;
   }
   const auto* counters = form.rates->counters( route.key() );
   return counters == nullptr ? -1.0 : static_cast<double>( counters->packets );
}

void sort( std::vector<const Route*>& routes, const RouteForm& form ) {
   if ( form.sort == "group" || form.rates == nullptr ) return;
   std::stable_sort( routes.begin(), routes.end(),
                     [&]( const Route* a, const Route* b ) {
                        return weight( form, *a ) > weight( form, *b );
                     } );
}

// "  out eth2, eth3", of the interfaces that forward.
std::string outText( const Route& route, const RouteFilter& filter ) {
   std::string text;
   for ( const Intf* intf : selectIntfs( route, filter ) ) {
      if ( intf->forward() )
         text += ( text.empty() ? "" : ", " ) + nameText( intf->intfId() );
   }
   return text.empty() ? "  out to nobody" : "  out " + text;
}

}

std::string routesText( const Mirror& mirror, const RouteFilter& filter,
                        const RouteForm& form, double now ) {
   auto routes = selectRoutes( mirror, filter );
   sort( routes, form );
   std::string text = routesHeading( mirror, routes.size() );
   if ( !routes.empty() ) text += '\n';
   Columns columns = columnsFor( routes, filter );
   const Rps rps( mirror );
   for ( const Route* route : routes ) {
      text += routeLine( *route, columns, now, rps.startsHere( *route ) );
      std::string more = form.oneline ? outText( *route, filter ) : "";
      if ( form.rated ) more += "  " + rateText( form, *route );
      text.insert( text.size() - 1, more );
      if ( form.oneline ) continue;
      if ( form.detail ) {
         field( std::back_inserter( text ), "      ", "rp", rpText( rps, *route ) );
         trafficDetail( text, form, *route, now );
         routeDetail( text, *route );
      }
      for ( const Intf* intf : selectIntfs( *route, filter ) ) {
         text += intfLine( *intf, columns, now );
         if ( form.detail ) intfDetail( text, *intf, now );
      }
   }
   return text;
}

}
