#include "platform/acl/AclToPrefix.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace Acl {
namespace {

using Vantu::Ip4Number;
using Vantu::Ip6Number;
using Vantu::IpGenPrefix;
using Vantu::IpGenPrefixSet;

AclRule rule( uint32_t sequence, AclAction action, const char* source,
              const char* destination = "none" ) {
   return { sequence, action, IpGenPrefix( Mox::StringView( source ) ),
            IpGenPrefix( Mox::StringView( destination ) ) };
}

// Added to what is there. No list, and one without rules, add nothing.
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

// Which rule decides, and that the prefixes are the fewest, is told by random lists.
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

// Random lists over a range of 512 groups against a matcher that asks each rule for
// each group. A group's prefix answers for every source: what is for some sources
// only neither permits the group nor takes it from a rule behind. The range may lie
// at either end of the address space.
template <class Family>
class Trial {
   using Number = typename Family::Number;
   using Converter = GroupConverter<Family>;
   static constexpr unsigned kBits = 9;
   static constexpr unsigned kGroups = 1U << kBits;

 public:
   Trial( unsigned seed, Number base ) : dice_( seed ), base_( base ) {}

   void run() {
      using Interval = typename Converter::Interval;
      using Set = typename Converter::Set;
      Converter converter(
         Set( Interval::closed( base_, base_ + ( kGroups - 1 ) ) ),
         Set( Interval::closed( 0, ~Number( 0 ) ) ) );
      for ( int round = 0; round < 200 && !testing::Test::HasFailure(); ++round ) {
         auto list = Mox::newEntity<AclConfig>( "list" );
         list->rulesIs( rules() );
         bool ignoreSource = pick( 2 ) == 0;
         IpGenPrefixSet made;
         converter.handleAcl( list.get(), made, ignoreSource );
         ask( list->currCfg()->rules(), ignoreSource );
         check( list->currCfg()->rules(), made );
      }
   }

 private:
   size_t pick( size_t count ) { return dice_() % count; }

   AclRules rules() {
      AclType type = pick( 2 ) == 0 ? standard : extended;
      std::vector<AclRule> out;
      for ( size_t i = pick( 25 ); i > 0; --i ) {
         IpGenPrefix group;
         unsigned host = static_cast<unsigned>( pick( kBits + 2 ) );
         if ( pick( 20 ) != 0 ) {
            group = { Family::address( base_ + pick( kGroups ) ),
                      Family::bits - host };
         }
         IpGenPrefix source( Family::address( 1 ),
                             pick( 3 ) == 0 ? Family::bits : 0 );
         out.push_back( { static_cast<uint32_t>( 1000 - i ),
                          pick( 3 ) == 0 ? deny : permit,
                          type == standard ? group : source,
                          type == standard ? IpGenPrefix() : group } );
      }
      std::shuffle( out.begin(), out.end(), dice_ );  // their numbers order them
      return { type, out };
   }

   void ask( const AclRules& list, bool ignoreSource ) {
      for ( unsigned i = 0; i < kGroups; ++i ) {
         Vantu::IpGenAddr group = Family::address( base_ + i );
         permitted_[i] = false;
         for ( const AclRule& each : list.rules() ) {
            bool plain = list.type() == standard;
            if ( !plain && !ignoreSource && each.source.length() != 0 ) continue;
            const IpGenPrefix& match = plain ? each.source : each.destination;
            if ( !match.isNone() && !match.contains( group ) ) continue;
            permitted_[i] = each.action == permit;
            break;
         }
      }
   }

   // The fewest prefixes of the block of groups, by halving it.
   size_t fewest( unsigned first, unsigned count ) const {
      unsigned some = 0;
      for ( unsigned i = 0; i < count; ++i ) some += permitted_[first + i];
      if ( some == 0 || some == count ) return some != 0;
      return fewest( first, count / 2 ) + fewest( first + count / 2, count / 2 );
   }

   void check( const AclRules& list, const IpGenPrefixSet& made ) const {
      EXPECT_EQ( made.size(), fewest( 0, kGroups ) ) << list << made;
      size_t room = 0;  // equal to the groups covered: none lies outside the range
      for ( const IpGenPrefix& each : made ) {
         room += size_t( 1 ) << ( Family::bits - each.length() );
      }
      for ( unsigned i = 0; i < kGroups; ++i ) {
         Vantu::IpGenAddr group = Family::address( base_ + i );
         bool found = false;
         for ( const IpGenPrefix& each : made ) found |= each.contains( group );
         room -= found;
         EXPECT_EQ( found, permitted_[i] ) << group << " of " << list << made;
      }
      EXPECT_EQ( room, 0U ) << list << made;
   }

   std::mt19937 dice_;
   Number base_;
   bool permitted_[kGroups] = {};
};

TEST( AclToPrefix, AgreesWithAskingEachRuleForEachGroup ) {
   unsigned seed = std::random_device()();
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   for ( uint32_t base : { 0U, 0xefff0000U, 0xfffffe00U } ) {
      Trial<Ip4Number>( seed, base ).run();
   }
   Vantu::Uint128 last = ~Vantu::Uint128( 0 ) - 511;
   for ( Vantu::Uint128 base : { Vantu::Uint128( 0 ), last << 64, last } ) {
      Trial<Ip6Number>( seed, base ).run();
   }
}

}
}
