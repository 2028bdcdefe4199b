#include "apps/mirror/RpRanges.h"

#include <algorithm>

#include "apps/mirror/AgentTables.h"
#include "ssm/SsmGroupInfo.h"

namespace Show {

using Mapping = Published::GroupRanges::Mapping;

namespace {

bool overlap( const RouteFilter& filter, const Vantu::IpGenPrefix& range ) {
   return !filter.group || filter.group->contains( range.address() ) ||
          range.contains( filter.group->address() );
}

void addConfigured( const Mirror& mirror, const RouteFilter& filter,
                    RpRanges& selected ) {
   std::vector<Published::Rp> all;
   mirror.agent->rp().visit( [&]( const Published::Rp& record ) {
      if ( record.key.length <= Vantu::addressBits( record.key.group.family() ) )
         all.push_back( record );
      return true;
   } );
   selected.all += all.size();
   std::sort( all.begin(), all.end(),
              []( const auto& a, const auto& b ) { return a.key < b.key; } );
   for ( const Published::Rp& record : all ) {
      const Vantu::IpGenPrefix range( record.key.group, record.key.length );
      if ( overlap( filter, range ) )
         selected.rows.push_back(
            { valueToStrep( range ),
              { Mapping::configured, record.address, range, record.own } } );
   }
}

std::optional<std::string> setting( const Mirror& mirror, const char* name ) {
   Published::Setting found;
   if ( mirror.agent->setting().find( Published::Text<32>( name ), found ) !=
        Brane::lookupFound )
      return std::nullopt;
   return found.value.text();
}

// The ranges that no configured RP is asked about.
void addOthers( const Mirror& mirror, RpRanges& selected ) {
   const auto add = [&]( const std::string& groups, Mapping::Rule rule ) {
      selected.rows.push_back( { groups, { rule } } );
      ++selected.all;
   };
   const bool ipv4 = mirror.family == Vantu::AddressFamily::ipv4;
   if ( !ipv4 && setting( mirror, "embedded-rp" ) == "yes" )
      add( "ff70::/12", Mapping::embedded );
   const auto filter = setting( mirror, "ssmFilter" );
   if ( !filter || *filter == Routing::Pim::SparseMode::noSsmRange ) return;
   add( !filter->empty() ? "list " + *filter
        : ipv4           ? "232.0.0.0/8"
                         : "ff3x::/32",
        Mapping::sourceSpecific );
}

}

RpRanges selectRps( const Mirror& mirror, const RouteFilter& filter ) {
   RpRanges selected;
   selected.known = isReady( mirror.agent->rp() );
   addConfigured( mirror, filter, selected );
   // A prefix of a list is not compared with others.
   if ( !filter.group ) addOthers( mirror, selected );
   return selected;
}

}
