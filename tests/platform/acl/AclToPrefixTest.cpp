#include "platform/acl/AclToPrefix.h"
#include "tests/platform/acl/Rule.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bitset>
#include <random>

namespace Acl {
namespace {

using Vantu::Ip4Number;
using Vantu::Ip6Number;
using Vantu::IpGenPrefix;
using Vantu::IpGenPrefixSet;

// Adds to the existing prefixes. No list, or one without rules, adds nothing.
template <class Converter>
Mox::String permitted( const Converter& converter, AclType type,
                       const std::vector<AclRule>& rules ) {
   auto list = Mox::newEntity<AclConfig>( "list" );
   IpGenPrefixSet out;
   out.insert( IpGenPrefix( Mox::StringView( "::/0" ) ) );
   converter.handleAcl( nullptr, out, false );
   converter.handleAcl( list.get(), out, false );
   list->rulesIs( { type, rules } );
   converter.handleAcl( list.get(), out, false );
   return valueToStrep( out );
}

// Random lists test which rule decides, and that the prefixes are the fewest.
TEST( AclToPrefix, ClipsToTheMulticastRange ) {
   auto ip4 = AclPrefix::AclToPrefix::multicast();
   auto ip6 = AclIp6Prefix::AclToIp6Prefix::multicast();
   for ( const char* all : { "128.0.0.0/1", "none" } )
      EXPECT_EQ( permitted( ip4, standard, { rule( 1, permit, all ) } ),
                 "{224.0.0.0/4, ::/0}" );
   EXPECT_EQ( permitted( ip6, standard, { rule( 1, permit, "none" ) } ),
              "{::/0, ff00::/8}" );
   EXPECT_EQ( permitted( ip6, extended,
                         { rule( 1, deny, "::/0", "ff80::/9" ),
                           rule( 2, permit, "::/0", "::/0" ) } ),
              "{::/0, ff00::/9}" );
   // The other family matches nothing.
   EXPECT_EQ( permitted( ip6, standard, { rule( 1, permit, "0.0.0.0/0" ) } ),
              "{::/0}" );
}

// Random lists over a range of 512 groups against a matcher that tries each rule on
// each group. A group's prefix answers for every source: a rule for some sources
// neither permits the group nor takes it from a later rule. The range may be at
// either end of the address space.
constexpr unsigned kBits = 9, kGroups = 1U << kBits;
using Groups = std::bitset<kGroups>;

template <class Family>
AclRules anyRules( std::mt19937& dice, typename Family::Number base ) {
   AclType type = dice() % 2 == 0 ? standard : extended;
   std::vector<AclRule> out;
   for ( auto i = dice() % 25; i > 0; --i ) {
      unsigned host = dice() % ( kBits + 2 );
      IpGenPrefix group( Family::address( base + dice() % kGroups ),
                         Family::bits - host );
      if ( dice() % 20 == 0 ) group = {};
      IpGenPrefix source( Family::address( 1 ),
                          dice() % 3 == 0 ? Family::bits : 0 );
      out.push_back( { static_cast<uint32_t>( 1000 - i ),
                       dice() % 3 == 0 ? deny : permit,
                       type == standard ? group : source,
                       type == standard ? IpGenPrefix() : group } );
   }
   std::shuffle( out.begin(), out.end(), dice );  // their numbers give the order
   return { type, out };
}

bool permits( const AclRules& list, const Vantu::IpGenAddr& group,
              bool ignoreSource ) {
   const bool plain = list.type() == standard;
   for ( const AclRule& each : list.rules() ) {
      if ( !plain && !ignoreSource && each.source.length() != 0 ) continue;
      const IpGenPrefix& match = plain ? each.source : each.destination;
      if ( match.isNone() || match.contains( group ) ) return each.action == permit;
   }
   return false;
}

// The fewest prefixes of the block of groups, by halving it.
size_t fewest( const Groups& groups, unsigned first, unsigned count ) {
   unsigned some = 0;
   for ( unsigned i = first; i < first + count; ++i ) some += groups[i];
   if ( some == 0 || some == count ) return some != 0;
   return fewest( groups, first, count / 2 ) +
          fewest( groups, first + count / 2, count / 2 );
}

template <class Family>
void expectAgreement( unsigned seed, typename Family::Number base ) {
   using Interval = typename GroupConverter<Family>::Interval;
   using Set = typename GroupConverter<Family>::Set;
   std::mt19937 dice( seed );
   GroupConverter<Family> converter(
      Set( Interval::closed( base, base + ( kGroups - 1 ) ) ),
      Set( Interval::closed( 0, ~typename Family::Number( 0 ) ) ) );
   auto list = Mox::newEntity<AclConfig>( "list" );
   for ( int round = 0; round < 200 && !testing::Test::HasFailure(); ++round ) {
      const AclRules rules = anyRules<Family>( dice, base );
      list->rulesIs( rules );
      bool ignoreSource = dice() % 2 == 0;
      IpGenPrefixSet made;
      converter.handleAcl( list.get(), made, ignoreSource );
      Groups asked, found;
      for ( unsigned i = 0; i < kGroups; ++i ) {
         Vantu::IpGenAddr group = Family::address( base + i );
         asked[i] = permits( rules, group, ignoreSource );
         for ( const IpGenPrefix& each : made )
            if ( each.contains( group ) ) found[i] = true;
      }
      EXPECT_EQ( found, asked ) << rules << made;
      EXPECT_EQ( made.size(), fewest( asked, 0, kGroups ) ) << rules << made;
      size_t room = 0;  // none lies outside the range
      for ( const IpGenPrefix& each : made )
         room += size_t( 1 ) << ( Family::bits - each.length() );
      EXPECT_EQ( room, found.count() ) << rules << made;
   }
}

TEST( AclToPrefix, AgreesWithAskingEachRuleForEachGroup ) {
   unsigned seed = std::random_device()();
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   for ( uint32_t base : { 0U, 0xefff0000U, 0xfffffe00U } ) {
      expectAgreement<Ip4Number>( seed, base );
   }
   Vantu::Uint128 last = ~Vantu::Uint128( 0 ) - 511;
   for ( Vantu::Uint128 base : { Vantu::Uint128( 0 ), last << 64, last } ) {
      expectAgreement<Ip6Number>( seed, base );
   }
}

}
}
