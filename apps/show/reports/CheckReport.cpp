#include "apps/show/reports/CheckReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "apps/json/RouteMembers.h"
#include "apps/mirror/AgentTables.h"
#include "apps/mirror/Olist.h"
#include "apps/show/reports/Checks.h"
#include "apps/show/reports/Inquiry.h"
#include "apps/show/text/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;

namespace {

using Group = std::vector<const Route*>;

// What the interface does, what it would do, and which single changes would make
// the two agree.
std::string differsText( const Mirror& mirror, const Intf& intf, bool forwards ) {
   const char* const actions[] = { "not forward", "forward" };
   std::string text = fmt::format( "{}, but by its outgoing list it would {}",
                                   forwardText( intf ), actions[forwards] );
   const std::vector<std::string> turns =
      turnsOf( mirror, intf, outgoingOf( mirror, intf ) );
   if ( turns.empty() ) return text;
   return text + fmt::format( "; it would {} if {}", actions[!forwards],
                              fmt::join( turns, " or if " ) );
}

// With all terms; "*" stands for any source there.
std::string termsCall( const RouteKey& key, Vantu::IntfId intfId ) {
   return explainCall( key, intfId,
                       key.source.isUnspecified() ? " --terms '*'" : " --terms" );
}

std::string logCall( const RouteKey& key ) {
   return "pimsm-show log --group " + Vantu::valueToStrep( key.group );
}

void checkIntf( const Mirror& mirror, const Intf& intf, Checked& checked ) {
   ++checked.intfs;
   const std::optional<bool> forwards =
      Conceivable( mirror ).known( intf, [&] { return intf.forwardDesired(); } );
   if ( !forwards ) {
      ++checked.undecided;
   } else if ( *forwards != intf.forward() ) {
      const RouteKey& key = intf.parentRoute()->key();
      checked.findings.push_back( { "forward-differs", key, intf.intfId(),
                                    differsText( mirror, intf, *forwards ),
                                    termsCall( key, intf.intfId() ) } );
   }
}

std::string unresolvedText( const Route& route, const Rps& rps ) {
   if ( !route.wildCard() ) return "no way to its source";
   if ( const auto rp = rps.rp( route.key().group ) )
      return "no way to its RP " + Vantu::valueToStrep( *rp );
   return rps.published() ? "its group has no RP" : "no incoming interface";
}

// Why no route of that family can have the key; empty if one can.
std::string impossibleText( const RouteKey& key, Vantu::AddressFamily family ) {
   const bool wildcard = key.source.isUnspecified();
   if ( key.group.family() != family ||
        ( !wildcard && key.source.family() != family ) )
      return "its addresses are not of the table's family";
   if ( !key.group.isMulticast() ) return "its group is no multicast address";
   return key.source.isMulticast() ? "its source is a multicast address" : "";
}

void checkRoute( const Mirror& mirror, const Route& route, const Rps& rps,
                 Checked& checked ) {
   ++checked.routes;
   const std::string impossible = impossibleText( route.key(), mirror.family );
   if ( !impossible.empty() )
      checked.findings.push_back(
         { "impossible-address", route.key(), {}, impossible, "pimsm-show log" } );
   if ( !route.rpf().intfId.empty() ) return;
   if ( route.wildCard() && rps.startsHere( route ) ) return;
   checked.findings.push_back( { "unresolved-rpf",
                                 route.key(),
                                 {},
                                 unresolvedText( route, rps ),
                                 explainCall( route.key(), {} ) } );
}

// Checked again at the end: a living agent removes a route's interfaces after it.
bool stands( const Mirror& mirror, const RouteIntfKey& key ) {
   return mirror.tables->routeIntf().has( key ) &&
          !mirror.tables->route().has( key.routeKey );
}

void checkStrays( const Mirror& mirror, const RouteFilter& filter,
                  Checked& checked ) {
   std::vector<RouteIntfKey> strays;
   mirror.tables->routeIntf().visit( [&]( const auto& record ) {
      if ( !mirror.tables->route().has( record.key.routeKey ) )
         strays.push_back( record.key );
      return true;
   } );
   for ( const RouteIntfKey& key : strays ) {
      if ( !filter.matches( key.routeKey ) || !stands( mirror, key ) ) continue;
      checked.findings.push_back( { "no-route", key.routeKey, key.intfId,
                                    "its route is missing",
                                    logCall( key.routeKey ) } );
   }
}

void checkTable( const MoxBrane::TableBase& table, Checked& checked ) {
   const auto found = [&]( const char* kind, const std::string& text ) {
      checked.findings.push_back(
         { kind,
           {},
           {},
           fmt::format( "table {}: {}", tableName( table ), text ),
           "pimsm-show status" } );
   };
   const std::string problem = unreadableText( table );
   if ( !problem.empty() ) found( "unreadable", problem );
   if ( !isReady( table ) ) return;
   // Damage was counted when the table was loaded.
   const uint64_t damaged = table.reader()->counters().damaged;
   if ( damaged != 0 || table.undecodable() != 0 )
      found( "unverifiable", fmt::format( "{} damaged records, {} undecodable",
                                          damaged, table.undecodable() ) );
}

std::string whereText( const Finding& finding ) {
   const bool route = !( finding.key == RouteKey() );
   std::string text = route ? keyText( finding.key ) : "";
   if ( !finding.intfId.empty() )
      text += ( route ? " " : "" ) + nameText( finding.intfId );
   return text.empty() ? text : text + ": ";
}

}

namespace {

// What keeps the receivers of a group from its packets whether or not a source sends. What
// is the same for several interfaces, or for all routes, is told once.
class Receivers {
 public:
   Receivers( const Facts& facts, Checked& checked )
      : facts_( facts ), checked_( checked ) {}

   void check( const Group& group, const RouteFilter& filter ) {
      const auto shared =
         std::find_if( group.begin(), group.end(),
                       []( const Route* each ) { return each->wildCard(); } );
      for ( const Route* route : group ) {
         Group asked{ route };
         if ( shared != group.end() && *shared != route )
            asked.push_back( *shared );
         std::string told;
         for ( const Intf* intf : selectIntfs( *route, filter ) )
            check( *route, intf->intfId(), asked, told );
      }
   }

 private:
   // A route without a path is found by itself, and so is an entry that differs, unless a
   // boundary bars what it lacks.
   static bool isToldElsewhere( const std::string& cause ) {
      return cause.empty() || cause == "no-path" || cause == "no-rp" ||
             cause == "entry-differs" || cause == "boundary";
   }

   void check( const Route& route, Vantu::IntfId intfId, Group group,
               std::string& told ) {
      const Receiver receiver{ route.key().group, route.key().source, intfId, {} };
      const Why why =
         Inquiry( facts_, receiver, intfId, std::move( group ) ).contradictions();
      if ( isToldElsewhere( why.cause ) || why.verdict == told ) return;
      told = why.verdict;
      const bool ofAll = why.cause == "mfib-gone" || why.cause == "no-mfib";
      if ( ofAll && !ofAll_.insert( why.cause ).second ) return;
      const auto bad = std::find_if(
         why.chain.begin(), why.chain.end(),
         []( const Why::Step& step ) { return step.mark == Why::bad; } );
      checked_.findings.push_back( { why.cause, ofAll ? RouteKey() : route.key(),
                                     ofAll ? Vantu::IntfId() : intfId,
                                     bad->evidence,
                                     ofAll ? "pimsm-show log --event entry"
                                           : explainCall( route.key(), intfId ) } );
   }

   const Facts& facts_;
   Checked& checked_;
   std::set<std::string> ofAll_;
};

}

namespace {

// On a link where another router forwards, all see its packets.
bool comesRightly( const Mirror& mirror, const RouteKey& key, double now,
                   double interval ) {
   Published::MfibCache entry;
   return mirror.mfib->cache().find( key, entry ) == Brane::lookupFound &&
          now - entry.lastPacket < kRecent + interval;
}

void checkWrongSides( const Mirror& mirror, const RouteFilter& filter, double now,
                      Checked& checked ) {
   const auto& upcalls = mirror.mfib->upcall();
   const std::optional<double> interval = counterInterval( mirror );
   // Without counters nobody knows what else comes.
   if ( !isReady( upcalls ) || interval == 0.0 ) return;
   upcalls.visit( [&]( const Published::MfibUpcall& upcall ) {
      const RouteKey& key = upcall.key.routeKey;
      const Route* route = std::as_const( *mirror.model ).route( key );
      const bool wrong =
         upcall.kind == Published::wrongVifUpcall && now - upcall.last < kRecent &&
         route != nullptr &&
         !comesRightly( mirror, key, now, interval.value_or( 0.0 ) ) &&
         filter.matches( key ) && route->incomingIntf() != upcall.key.intfId &&
         route->routeIntf( upcall.key.intfId ) == nullptr;
      if ( wrong )
         checked.findings.push_back(
            { "wrong-interface", key, upcall.key.intfId,
              fmt::format(
                 "packets come by it, but the way to the source is {}",
                 rpfText( route->incomingRpf(), route->incomingAttached() ) ),
              explainCall( key, {} ) } );
      return true;
   } );
}

}

Checked check( const Mirror& mirror, const RouteFilter& filter,
               const Evidence& evidence ) {
   Checked checked;
   const Facts facts( mirror, evidence );
   std::map<Vantu::IpGenAddr, Group> groups;
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      groups[route->key().group].push_back( route );
      checkRoute( mirror, *route, facts.rps(), checked );
      for ( const Intf* intf : selectIntfs( *route, filter ) )
         checkIntf( mirror, *intf, checked );
   }
   checkStrays( mirror, filter, checked );
   checkWrongSides( mirror, filter, evidence.now, checked );
   checkLinks( mirror, filter, evidence, checked );
   checkEntries( facts, filter, checked );
   Receivers receivers( facts, checked );
   for ( const auto& [address, group] : groups ) receivers.check( group, filter );
   for ( const MoxBrane::TableBase* table : agentTables( mirror ) )
      checkTable( *table, checked );
   return checked;
}

std::string explainCall( const RouteKey& key, Vantu::IntfId intfId,
                         const char* options ) {
   const std::string source =
      key.source.isUnspecified() ? "" : Vantu::valueToStrep( key.source ) + ' ';
   return fmt::format( "pimsm-show explain{} {}{}{}", options, source,
                       Vantu::valueToStrep( key.group ),
                       intfId.empty() ? "" : ' ' + nameText( intfId ) );
}

void checkProcess( const Published::ProcessStatus& process, Checked& checked ) {
   checkTable( process.counter(), checked );
}

std::string checkText( const Mirror& mirror, const Checked& checked ) {
   std::string text =
      headingText( mirror, fmt::format( "{}, {} checked, {} found",
                                        countText( checked.routes, "route" ),
                                        countText( checked.intfs, "interface" ),
                                        checked.findings.size() ) );
   for ( const Finding& finding : checked.findings )
      text += fmt::format( "    {:<18}  {}{}{}\n", finding.kind,
                           whereText( finding ), finding.text,
                           finding.see.empty() ? "" : ";\tsee " + finding.see );
   if ( checked.undecided != 0 )
      text += fmt::format( "    {} outgoing lists unknown: {}\n", checked.undecided,
                           noInterfacesText( mirror ) );
   return text;
}

Json checkJson( const Checked& checked ) {
   Json json;
   json["routes"] = checked.routes;
   json["interfaces"] = checked.intfs;
   json["undecided"] = checked.undecided;
   Json& list = json["finding"] = Json::array();
   for ( const Finding& finding : checked.findings ) {
      Json entry;
      entry["kind"] = finding.kind;
      if ( finding.key != RouteKey() ) entry.update( keyJson( finding.key ) );
      if ( !finding.intfId.empty() ) entry["interface"] = finding.intfId.name();
      entry["text"] = finding.text;
      if ( !finding.see.empty() ) entry["see"] = finding.see;
      list.push_back( std::move( entry ) );
   }
   return json;
}

}
