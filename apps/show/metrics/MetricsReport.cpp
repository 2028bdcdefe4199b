#include "apps/show/metrics/MetricsReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <optional>

#include "apps/json/YangData.h"
#include "apps/mirror/AgentTables.h"
#include "apps/show/metrics/Exposition.h"
#include "published/Counting.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Labels = Exposition::Labels;

namespace {

Labels with( Labels labels, const char* name, const std::string& value ) {
   labels.emplace_back( name, value );
   return labels;
}

// The agent's counters by owner and name.
class Counters {
 public:
   explicit Counters( const Published::ProcessStatus& process ) {
      if ( process.counterControl()->mountStatus() != MoxBrane::mountReady ) return;
      process.counter().visit( [this]( const Published::Counter& record ) {
         values_[{ record.key.owner.text(), record.key.name.text() }] =
            record.value;
         return true;
      } );
   }

   std::optional<uint64_t> value( const std::string& owner,
                                  const std::string& name ) const {
      auto found = values_.find( { owner, name } );
      if ( found == values_.end() ) return std::nullopt;
      return found->second;
   }
   template <class Call>
   void each( const std::string& owner, Call call ) const {
      for ( auto at = values_.lower_bound( { owner, "" } );
            at != values_.end() && at->first.first == owner; ++at )
         call( at->first.second, at->second );
   }
   // The same for all owners that begin with `prefix`; `call` gets the rest of the
   // owner first.
   template <class Call>
   void eachBelow( const std::string& prefix, Call call ) const {
      for ( auto at = values_.lower_bound( { prefix, "" } );
            at != values_.end() && at->first.first.rfind( prefix, 0 ) == 0; ++at )
         call( at->first.first.substr( prefix.size() ), at->first.second,
               at->second );
   }

 private:
   std::map<std::pair<std::string, std::string>, uint64_t> values_;
};

template <class Histogram>
Exposition::Counts countsOf( const Histogram& histogram ) {
   Exposition::Counts counts;
   for ( const auto& [count, entry] : histogram )
      counts[count] = entry.addr().size();
   return counts;
}

// The unspecified address is that of (*,G) routes and is no source.
Exposition::Counts sourceCounts( const Mirror& mirror,
                                 const Published::Counting& counting ) {
   Exposition::Counts counts = countsOf( counting.sources().sourcesByGroupCount() );
   const Sm::Source* shared =
      mirror.model->source( Vantu::IpGenAddr::unspecified( mirror.family ) );
   if ( shared == nullptr ) return counts;
   auto found = counts.find( shared->sourceGroup().size() );
   if ( found != counts.end() && --found->second == 0 ) counts.erase( found );
   return counts;
}

void addRoutes( Exposition& out, const Mirror& mirror, const Labels& labels ) {
   constexpr const char* kRoutes = "Routes by kind: (*,G) or (S,G).";
   out.gauge( "pimsm_routes", kRoutes, with( labels, "kind", "wc" ),
              mirror.model->wcRoutes() );
   out.gauge( "pimsm_routes", kRoutes, with( labels, "kind", "sg" ),
              mirror.model->sgRoutes() );
   size_t outgoing = 0;
   for ( const Route& route : std::as_const( *mirror.model ).route() ) {
      for ( const Intf& intf : route.routeIntf() )
         outgoing += intf.forward() ? 1 : 0;
   }
   out.gauge( "pimsm_outgoing_interfaces",
              "Interfaces that forward, summed over all routes.", labels,
              static_cast<double>( outgoing ) );
   for ( const Pending& pending : pendingRoutes( mirror ) ) {
      if ( pending.routes )
         out.gauge( "pimsm_routes_pending", "Routes that wait for something.",
                    with( labels, "state", pending.state ), *pending.routes );
   }
   const Published::Counting counting( mirror.model );
   out.histogram(
      "pimsm_source_groups",
      "Sources of (S,G) routes by their number of groups; the unspecified "
      "one of (*,G) routes is left out.",
      labels, sourceCounts( mirror, counting ) );
   out.histogram( "pimsm_group_sources",
                  "Groups by the number of sources in their (S,G) routes.", labels,
                  countsOf( counting.groups().groupsBySourceCount() ) );
}

void addTables( Exposition& out, const Mirror& mirror, const Labels& labels ) {
   out.gauge( "pimsm_writer_up", "Does the agent hold its tables?", labels,
              mirror.writerAlive() ? 1 : 0 );
   for ( const MoxBrane::TableBase* table : agentTables( mirror ) ) {
      // The route counters' table is always full.
      if ( table->capacity() == 0 || table == &mirror.tables->routeCounter() )
         continue;
      out.gauge( "pimsm_table_used_ratio", "Part of a table that is full.",
                 with( labels, "table", tableName( *table ) ),
                 static_cast<double>( table->size() ) / table->capacity() );
   }
   for ( const MoxBrane::TableBase* table : mirror.registers->tables() ) {
      if ( table->capacity() == 0 ) continue;
      out.gauge( "pimsm_registers", "(S,G) in each table of the register state.",
                 with( labels, "table", table->name() ), table->size() );
   }
}

// The route tables count the results of writes, the others the calls of their
// owner.
void addWrites( Exposition& out, const Mirror& mirror, const Labels& labels,
                const Counters& counters ) {
   struct Row {
      const char* counter;  // follows the table's name
      const char* result;
   };
   constexpr Row kRows[] = { { "Written", "written" },
                             { "Removed", "removed" },
                             { "Refused", "refused" },
                             { "Is", "asked-to-write" },
                             { "Del", "asked-to-remove" } };
   for ( const MoxBrane::TableBase* table : agentTables( mirror ) ) {
      const std::string& owner = table->control()->entity()->name();
      for ( const Row& row : kRows ) {
         const auto count = counters.value( owner, table->name() + row.counter );
         if ( !count ) continue;
         out.counter( "pimsm_table_writes_total",
                      "Writes of the agent to its tables: of those of routes what "
                      "came of them, of the others what was asked.",
                      with( with( labels, "table", tableName( *table ) ), "result",
                            row.result ),
                      *count );
      }
   }
}

// The agent's counters of a VRF and family, under the path of its tables.
void addAgentOf( Exposition& out, const Mirror& mirror, const Labels& labels,
                 const Counters& counters ) {
   const std::string& path = mirror.tables->name();
   auto of = [&]( const std::string& name ) {
      return counters.value( path, name );
   };
   if ( auto count = of( "reviews" ) )
      out.counter( "pimsm_review_passes_total",
                   "Reviews of changed routes that the agent has finished.", labels,
                   *count );
   if ( auto count = of( "reloadMicroseconds" ) )
      out.gauge( "pimsm_reload_duration_seconds",
                 "How long the agent took to reload its tables at its start.",
                 labels, static_cast<double>( *count ) * 1e-6 );
   if ( auto count = of( "reloadRoutes" ) )
      out.gauge( "pimsm_reload_routes", "Routes that the agent reloaded.", labels,
                 static_cast<double>( *count ) );
}

// Of a process as a whole, the agent or the forwarding one.
void addProcess( Exposition& out, const Counters& counters ) {
   struct Row {
      const char* owner;
      const char* name;
      const char* label;
      const char* help;
   };
   constexpr Row kRows[] = {
      { "agent/packets", "pimsm_agent_packets_total", "type",
        "Messages that the agent received." },
      { "agent/dropped", "pimsm_agent_packets_dropped_total", "reason",
        "Packets that the agent could not decode." },
      { "agent/refused", "pimsm_agent_refused_total", "reason",
        "Decoded messages, or parts of them, that changed nothing." },
      { "agent/sent", "pimsm_agent_packets_sent_total", "type",
        "Messages that the agent sent." },
      { "agent/unsent", "pimsm_agent_packets_unsent_total", "type",
        "Messages that the agent could not send." },
      { "agent/joins", "pimsm_agent_joins_total", "event",
        "What became of the agent's own joins and prunes." },
      { "agent/elections", "pimsm_agent_elections_total", "outcome",
        "What the routers of a link agreed on." },
      { "agent/events", "pimsm_agent_events_total", "kind",
        "What happened in the agent, as its event log names it." },
      { "mfib/events", "pimsm_mfib_events_total", "kind",
        "What happened in the forwarding process, as its event log names it." } };
   for ( const Row& row : kRows ) {
      counters.each( row.owner, [&]( const std::string& name, uint64_t value ) {
         out.counter( row.name, row.help, { { row.label, yangName( name ) } },
                      value );
      } );
   }
}

// The keys of a table of interfaces in order of name.
std::vector<Vantu::IntfId> sorted( std::vector<Vantu::IntfId> names ) {
   std::sort( names.begin(), names.end() );
   return names;
}

// The interfaces as the agent publishes them.
void addInterfaces( Exposition& out, const Mirror& mirror, const Labels& labels ) {
   const auto add = [&]( const char* name, const char* help,
                         const Published::Interface& intf, double value ) {
      out.gauge( name, help,
                 with( labels, "interface", std::string( intf.key.name() ) ),
                 value );
   };
   for ( Vantu::IntfId name : sorted( mirror.agent->interface().keys() ) ) {
      Published::Interface intf;
      if ( mirror.agent->interface().find( name, intf ) != Brane::lookupFound )
         continue;
      if ( intf.link != Published::linkUnknown )
         add( "pimsm_interface_up", "Is the interface up, with carrier?", intf,
              intf.link == Published::linkUp ? 1 : 0 );
      if ( intf.link == Published::linkDown ) continue;
      add( "pimsm_interface_neighbors", "PIM neighbours.", intf, intf.neighbors );
      add( "pimsm_interface_designated_router", "Is this router the DR there?",
           intf, intf.iAmDr ? 1 : 0 );
   }
}

// An interface of the forwarding process.
void addVif( Exposition& out, const Published::MfibVif& vif,
             const Labels& labels ) {
   const Labels named = with( labels, "interface", std::string( vif.key.name() ) );
   const auto add = [&]( const char* direction, uint64_t packets, uint64_t bytes ) {
      const Labels way = with( named, "direction", direction );
      out.counter( "pimsm_forwarding_packets_total",
                   "Multicast packets that came in to be forwarded, or went out.",
                   way, packets );
      out.counter( "pimsm_forwarding_bytes_total", "Bytes of these packets.", way,
                   bytes );
   };
   add( "in", vif.packetsIn, vif.bytesIn );
   add( "out", vif.packetsOut, vif.bytesOut );
}

// The kernel's entries, by the incoming interfaces of their routes; those without a
// route are of none.
void addEntries( Exposition& out, const Mirror& mirror, const Labels& labels ) {
   struct Sum {
      uint64_t entries = 0, wrong = 0;
   };
   std::map<std::string, Sum> sums;
   mirror.mfib->cache().visit( [&]( const Published::MfibCache& record ) {
      const Route* route = std::as_const( *mirror.model ).route( record.key );
      Sum& sum =
         sums[route == nullptr ? "" : std::string( route->incomingIntf().name() )];
      sum.entries += 1;
      sum.wrong += record.wrongIf;
      return true;
   } );
   for ( const auto& [name, sum] : sums ) {
      const Labels named = with( labels, "interface", name );
      out.gauge( "pimsm_forwarding_entries",
                 "Entries of the kernel, by where their packets come in.", named,
                 static_cast<double>( sum.entries ) );
      out.gauge( "pimsm_forwarding_wrong_interface_packets",
                 "Packets of these entries that came in elsewhere.", named,
                 static_cast<double>( sum.wrong ) );
   }
}

// Nothing where no forwarding process has run.
void addForwarding( Exposition& out, const Mirror& mirror, const Labels& labels ) {
   if ( !isReady( mirror.mfib->cache() ) || !isReady( mirror.mfib->vif() ) ) return;
   out.gauge( "pimsm_forwarding_up", "Does the forwarding process hold its tables?",
              labels, mirror.mfib->cache().writerAlive() ? 1 : 0 );
   for ( Vantu::IntfId name : sorted( mirror.mfib->vif().keys() ) ) {
      Published::MfibVif vif;
      if ( mirror.mfib->vif().find( name, vif ) == Brane::lookupFound )
         addVif( out, vif, labels );
   }
   addEntries( out, mirror, labels );
}

// What stands before the first slash; removes it with the slash.
std::string takePart( std::string& rest ) {
   const size_t slash = std::min( rest.find( '/' ), rest.size() );
   std::string part = rest.substr( 0, slash );
   rest.erase( 0, slash + 1 );
   return part;
}

// An interface's name may hold slashes, so it comes last.
void addLinks( Exposition& out, const Counters& counters ) {
   const auto add = [&]( const char* owner, const char* name, const char* help,
                         const char* label = "type" ) {
      counters.eachBelow( owner, [&]( std::string rest, const std::string& type,
                                      uint64_t value ) {
         const std::string vrf = takePart( rest );
         out.counter(
            name, help,
            { { "vrf", vrf }, { "interface", rest }, { label, yangName( type ) } },
            value );
      } );
   };
   add( "agent/sent/", "pimsm_agent_interface_sent_total",
        "Messages that the agent sent on an interface." );
   add( "agent/received/", "pimsm_agent_interface_received_total",
        "Messages that came in by an interface, of neighbours or of others." );
   add( "agent/refused/", "pimsm_agent_interface_refused_total",
        "Of these, messages or parts of them that changed nothing.", "reason" );
   counters.eachBelow(
      "agent/asked/",
      [&]( std::string rest, const std::string& what, uint64_t value ) {
         const std::string vrf = takePart( rest );
         const std::string neighbor = takePart( rest );
         out.counter( "pimsm_agent_neighbor_sent_total",
                      "Joins and prunes that the agent sent for a neighbour.",
                      { { "vrf", vrf },
                        { "neighbor", neighbor },
                        { "interface", rest },
                        { "what", what } },
                      value );
      } );
}

// "mfib/upcalls/ipv4/default": a VRF's name holds no slash.
void addMfib( Exposition& out, const Counters& counters ) {
   struct Row {
      const char* owners;
      const char* name;
      const char* label;
      const char* help;
   };
   constexpr Row kRows[] = {
      { "mfib/upcalls/", "pimsm_mfib_upcalls_total", "kind",
        "Packets that the kernel told of; replaced: records, for want of room." },
      { "mfib/registers/", "pimsm_mfib_registers_total", "outcome",
        "Packets of sources that are registered; too big: also told to the "
        "source." },
      { "mfib/entries/", "pimsm_mfib_entries_total", "outcome",
        "Changes of the kernel's entries." } };
   for ( const Row& row : kRows ) {
      counters.eachBelow(
         row.owners,
         [&]( std::string rest, const std::string& what, uint64_t value ) {
            const std::string family = takePart( rest );
            out.counter( row.name, row.help,
                         { { "vrf", rest },
                           { "family", family },
                           { row.label, yangName( what ) } },
                         value );
         } );
   }
}

}

std::string metricsText( const Mirrors& mirrors, const char* version ) {
   Exposition out;
   const Counters counters( mirrors.agentProcess() );
   for ( const auto& mirror : mirrors.all() ) {
      const Labels labels = { { "vrf", mirror->vrf() },
                              { "family", familyName( mirror->family ) } };
      addTables( out, *mirror, labels );
      // A VRF that has just come is still being read.
      if ( mirror->loaded() ) addRoutes( out, *mirror, labels );
      addWrites( out, *mirror, labels, counters );
      addAgentOf( out, *mirror, labels, counters );
      addInterfaces( out, *mirror, labels );
      addForwarding( out, *mirror, labels );
   }
   addProcess( out, counters );
   addLinks( out, counters );
   const Counters forwarding( mirrors.mfibProcess() );
   addProcess( out, forwarding );
   addMfib( out, forwarding );
   Labels build = { { "version", version } };
   if ( !mirrors.all().empty() ) {
      const auto& layout =
         mirrors.all().front()->tables->route().reader()->layout();
      build =
         with( build, "layout", fmt::format( "{:016x}", layout.fingerprint() ) );
   }
   out.gauge( "pimsm_build_info", "The tool's version and its tables' layout.",
              build, 1 );
   return out.text();
}

}
