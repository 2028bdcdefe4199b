#include "apps/show/reports/Explain.h"

#include <fmt/format.h>

#include <set>

#include "apps/mirror/RouteFilter.h"
#include "apps/show/reports/DerivationReport.h"
#include "apps/show/reports/OutgoingReport.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Json = nlohmann::ordered_json;
using Routing::Pim::RouteKey;

namespace {

// The interface in question, or all.
std::vector<const Intf*> asked( const Mirror& mirror, const Question& question ) {
   const Route& route = *std::as_const( *mirror.model ).route( question.route );
   RouteFilter filter;
   if ( !question.intfId.empty() )
      filter.iface = std::string( question.intfId.name() );
   return selectIntfs( route, filter );
}

}

Sm::AssertMetric metricArgument( const std::string& text ) {
   if ( !Sm::hasMetricItems( text ) )
      throw Mox::ParseError( text +
                             " is no assert metric, such as \"[S] 192.0.2.9 "
                             "[110/20]\"" );
   return Mox::stringToValue<Sm::AssertMetric>( text );
}

RouteKey routeArgument( const std::string& source, const std::string& group ) {
   RouteKey key;
   key.group = Vantu::IpGenAddr( group );
   key.source = source == "*" ? Vantu::IpGenAddr::unspecified( key.group.family() )
                              : Vantu::IpGenAddr( source );
   if ( !key.group.isMulticast() )
      throw Mox::RangeError( group + " is no multicast group" );
   if ( key.source.family() != key.group.family() )
      throw Mox::RangeError( source + " and " + group + " are not of one family" );
   return key;
}

bool knows( const Mirror& mirror, const Question& question ) {
   const Route* route = std::as_const( *mirror.model ).route( question.route );
   if ( route == nullptr ) return false;
   return question.intfId.empty() || route->routeIntf( question.intfId ) != nullptr;
}

std::string unknownText( const Mirrors& mirrors, const Question& question ) {
   const std::string key = keyText( question.route );
   std::set<std::string> intfs;
   bool standing = false;
   for ( const auto& mirror : mirrors.all() ) {
      const Route* route = std::as_const( *mirror->model ).route( question.route );
      if ( route == nullptr ) continue;
      standing = true;
      for ( const Intf& intf : route->routeIntf() )
         intfs.emplace( intf.intfId().name() );
   }
   if ( !standing ) return "no such route " + key + ": see pimsm-show routes";
   return fmt::format(
      "route {} has no record of {}: it has {}", key, question.intfId.name(),
      intfs.empty() ? "none" : fmt::format( "{}", fmt::join( intfs, ", " ) ) );
}

std::string explainText( const Mirror& mirror, const Question& question,
                         double now ) {
   if ( !question.macro.empty() ) return derivationText( mirror, question );
   std::string text;
   for ( const Intf* intf : asked( mirror, question ) ) {
      if ( !text.empty() ) text += '\n';
      text += outgoingText( mirror, *intf, now );
   }
   if ( !text.empty() ) return text;
   return fmt::format( "{} vrf {}: no interface in any list\n",
                       keyText( question.route ), vrfText( mirror ) );
}

Json explainJson( const Mirror& mirror, const Question& question ) {
   if ( !question.macro.empty() ) return derivationJson( mirror, question );
   Json list = Json::array();
   for ( const Intf* intf : asked( mirror, question ) )
      list.push_back( outgoingJson( mirror, *intf ) );
   return list;
}

}
