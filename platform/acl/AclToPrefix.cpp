#include "platform/acl/AclToPrefix.h"

#include <algorithm>

namespace Acl {
namespace {

// The largest aligned blocks from `first` to `last`: no fewer prefixes cover exactly
// them.
template <class Family>
void addPrefixes( typename Family::Number first, typename Family::Number last,
                  Vantu::IpGenPrefixSet& out ) {
   for ( ;; ) {
      // Bits of the block: as many as its address is aligned to and still fit.
      auto more = last - first;
      unsigned fitting = more == Family::ones( Family::bits )
                            ? Family::bits
                            : Family::bits - 1 - Family::leadingZeros( more + 1 );
      unsigned host = std::min( Family::trailingZeros( first ), fitting );
      out.insert( { Family::address( first ), Family::bits - host } );
      auto end = first + Family::ones( host );
      if ( end == last ) return;
      first = end + 1;
   }
}

bool everySource( const AclRule& rule ) {
   return rule.source.isNone() || rule.source.length() == 0;
}

}

template <class Family>
GroupConverter<Family>::GroupConverter( Set groups, Set all )
   : groups_( std::move( groups ) ), all_( std::move( all ) ) {}

template <class Family>
void GroupConverter<Family>::handleAcl( const AclConfig* acl,
                                        Vantu::IpGenPrefixSet& out,
                                        bool ignoreSource ) const {
   if ( acl == nullptr || acl->currCfg() == nullptr ) return;
   const AclRules& list = acl->currCfg()->rules();
   Set permitted;
   for ( auto rule = list.rules().rbegin(); rule != list.rules().rend(); ++rule ) {
      if ( list.type() == standard ) {
         paint( *rule, rule->source, permitted );
      } else if ( ignoreSource || everySource( *rule ) ) {
         paint( *rule, rule->destination, permitted );
      }
   }
   for ( const Interval& interval : permitted ) {
      addPrefixes<Family>( boost::icl::first( interval ),
                           boost::icl::last( interval ), out );
   }
}

template <class Family>
void GroupConverter<Family>::paint( const AclRule& rule,
                                    const Vantu::IpGenPrefix& group,
                                    Set& permitted ) const {
   auto apply = [&]( const Interval& matched ) {
      auto [clip, end] = groups_.equal_range( matched );
      for ( ; clip != end; ++clip ) {
         if ( rule.action == permit ) {
            permitted.add( *clip & matched );
         } else {
            permitted.subtract( *clip & matched );
         }
      }
   };
   if ( group.isNone() ) {
      for ( const Interval& interval : all_ ) apply( interval );
      return;
   }
   if ( group.family() != Family::family ) return;
   Number first = Family::of( group.address() );
   apply( Interval::closed(
      first, first | Family::ones( Family::bits - group.length() ) ) );
}

template class GroupConverter<Vantu::Ip4Number>;
template class GroupConverter<Vantu::Ip6Number>;

}

namespace AclPrefix {

AclToPrefix AclToPrefix::multicast() {
   Set groups( Interval::right_open( 0xe0000000U, 0xf0000000U ) );
   Set all( Interval::closed( 0, 0xffffffffU ) );
   return { std::move( groups ), std::move( all ) };
}

}

namespace AclIp6Prefix {

AclToIp6Prefix AclToIp6Prefix::multicast() {
   Number last = ~Number( 0 );
   Number first = Number( 0xff ) << 120;
   return { Set( Interval::closed( first, last ) ),
            Set( Interval::closed( 0, last ) ) };
}

}
