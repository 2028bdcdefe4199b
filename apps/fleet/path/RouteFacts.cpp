#include <algorithm>

#include "apps/fleet/path/Facts.h"
#include "apps/fleet/path/detail/Members.h"

namespace Fleet {

using Mox::ParseError;

namespace {

constexpr std::pair<const char*, Reason> kReasons[] = {
   { "", Reason::none },
   { "incoming-interface", Reason::incomingInterface },
   { "no-receivers", Reason::noReceivers },
   { "prunes(S,G,rpt)", Reason::prunesSgRpt },
   { "pim_exclude(S,G)", Reason::excludeSg },
   { "lost_assert(*,G)", Reason::lostAssertWc },
   { "lost_assert(S,G,rpt)", Reason::lostAssertSgRpt },
   { "lost_assert(S,G)", Reason::lostAssertSg },
   { "a reason that this program does not know", Reason::other } };

// Deliberately lenient: a later recorder may know more reasons.
Reason reasonOf( const std::string& text ) {
   for ( const auto& [word, reason] : kReasons )
      if ( text == word ) return reason;
   return Reason::other;
}

RouteIntf routeIntfFrom( const Json& json ) {
   constexpr std::pair<const char*, bool> kJoins[] = {
      { "no-info", false }, { "join", true }, { "prune-pending", true } };
   constexpr std::pair<const char*, RouteIntf::Assert> kAsserts[] = {
      { "no-info", RouteIntf::noInfo },
      { "i-am-assert-winner", RouteIntf::winner },
      { "i-am-assert-loser", RouteIntf::loser } };
   const Members members( json );
   RouteIntf is;
   is.name = members.text( "name" );
   is.forwards = members.flag( "forwarding" );
   is.joined = members.choice( "join-state", kJoins );
   is.pruning = is.joined && members.text( "join-state" ) == "prune-pending";
   is.member = members.flag( "local-receiver-include" );
   is.excludes = members.flag( "local-receiver-exclude" );
   is.assertState = members.choice( "assert-state", kAsserts );
   if ( const Json* winner = members.object( "assert-winner" ) )
      is.assertWinner = Members( *winner ).address( "address" );
   is.reason = reasonOf( members.text( "not-forwarding-reason" ) );
   return is;
}

void addRpf( Entry& entry, const Json* rpf ) {
   if ( rpf == nullptr ) return;
   const Members members( *rpf );
   entry.rpfInterface = members.text( "interface" );
   entry.rpfNeighbor = members.address( "neighbor" );
   entry.attached = members.flag( "attached" );
}

Entry entryFrom( const Members& members ) {
   constexpr std::pair<const char*, bool> kUpstream[] = { { "not-joined", false },
                                                          { "joined", true } };
   Entry is;
   is.spt = members.flag( "is-spt" );
   is.incoming = members.text( "incoming-interface" );
   is.neighbor = members.address( "rpf-neighbor" );
   addRpf( is, members.object( "pimsm-state:rpf" ) );
   is.sourceSpecific = members.text( "mode" ) == "ietf-pim-base:pim-ssm";
   is.rp = members.address( "rp-address" );
   is.joined = members.choice( "pimsm-state:upstream-join-state", kUpstream );
   is.created = members.time( "pimsm-state:created" );
   if ( const Json* all = members.array( "pimsm-state:interface" ) )
      for ( const Json& each : *all )
         is.interfaces.push_back( routeIntfFrom( each ) );
   return is;
}

RouteKey keyFrom( const Members& members ) {
   RouteKey key;
   key.group = members.address( "group" );
   if ( members.text( "source-address" ) == "*" ) {
      key.source = IpGenAddr::unspecified( key.group.family() );
   } else {
      key.source = members.address( "source-address" );
   }
   return key;
}

}

const char* reasonText( Reason reason ) {
   for ( const auto& [word, value] : kReasons )
      if ( value == reason ) return word;
   return "";
}

const RouteIntf* Entry::find( std::string_view name ) const {
   const auto found =
      std::find_if( interfaces.begin(), interfaces.end(),
                    [&]( const RouteIntf& each ) { return each.name == name; } );
   return found == interfaces.end() ? nullptr : &*found;
}

Route routeFacts( std::string_view value, const RouteKey& key ) {
   const Json json = documentOf( value );
   if ( !json.is_array() || json.empty() || json.size() > 2 )
      throw ParseError( "it is no list of one or two entries" );
   Route route;
   const bool wildcard = key.source.isUnspecified();
   for ( const Json& each : json ) {
      const Members members( each );
      if ( keyFrom( members ) != key ) throw ParseError( "it is of another route" );
      Entry entry = entryFrom( members );
      if ( members.flag( "is-rpt" ) && !wildcard ) {
         route.rpt = std::move( entry );
      } else {
         route.entry = std::move( entry );
      }
   }
   return route;
}

Registering registerFacts( std::string_view value ) {
   const Json json = documentOf( value );
   const Members members( json );
   return { members.flag( "register-oif" ), members.flag( "no-register-oif" ),
            members.flag( "dr-discovered" ), members.flag( "anycast-discovered" ) };
}

Rates rateFacts( std::string_view value ) {
   const Json json = documentOf( value );
   const Members all( json );
   Rates rates;
   rates.at = all.time( "at" );
   const Json* streams = all.array( "stream" );
   if ( streams == nullptr ) return rates;
   for ( const Json& each : *streams ) {
      const Members members( each );
      Rate rate{ keyFrom( members ),
                 members.counter( "packets" ),
                 members.real( "packets-per-second" ),
                 members.real( "bits-per-second" ),
                 {} };
      if ( const Json* samples = members.array( "samples" ) ) {
         for ( const Json& sample : *samples )
            rate.samples.push_back(
               *Members( Json{ { "sample", sample } } ).counter( "sample" ) );
      }
      rates.streams.push_back( std::move( rate ) );
   }
   return rates;
}

}
