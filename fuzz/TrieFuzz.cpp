// The tries against linear search. The first byte chooses the family, then each
// five bytes are a step: an action, a length, and an address of 16 bits somewhere
// in ones or in zeros, so that prefixes nest, touch and meet the ends of the range.

#include <set>

#include "fuzz/Check.h"
#include "platform/trie/TrieGen.h"

namespace {

using Routing::TrieGen;
using Vantu::AddressFamily;
using Vantu::IpGenPrefix;

class Steps {
 public:
   explicit Steps( AddressFamily family )
      : family_( family ), trie_( Mox::newEntity<TrieGen>( "fuzz", family ) ) {}

   void step( const uint8_t* bytes ) {
      const IpGenPrefix prefix = family_ == AddressFamily::ipv4
                                    ? prefixOf<Vantu::Ip4Number>( bytes + 1 )
                                    : prefixOf<Vantu::Ip6Number>( bytes + 1 );
      switch ( bytes[0] % 16 ) {
         case 0:
            return clear();
         case 1:
            return compareAll();
         case 2:
         case 3:
         case 4:
            trie_->routeIs( prefix, false );
            stored_.erase( prefix );
            return;
         case 5:
         case 6:
         case 7:
         case 8:
         case 9:
            return compare( prefix );
         default:
            trie_->routeIs( prefix, true );
            stored_.insert( prefix );
      }
   }
   void compareAll() const {
      FUZZ_CHECK( trie_->size() == stored_.size() );
      family_ == AddressFamily::ipv4 ? compareOrder( *trie_->trie4() )
                                     : compareOrder( *trie_->trie6() );
      for ( const IpGenPrefix& prefix : stored_ ) {
         FUZZ_CHECK( trie_->longestMatch( prefix ) == prefix );
      }
   }

 private:
   template <class Family>
   static IpGenPrefix prefixOf( const uint8_t* bytes ) {
      using Number = typename Family::Number;
      const unsigned span = Family::bits - 15;
      Number number = static_cast<Number>( bytes[2] << 8 | bytes[3] )
                      << ( bytes[1] % 128 % span );
      if ( bytes[1] >= 128 ) number = ~number;
      return { Family::address( number ), bytes[0] % ( Family::bits + 1 ) };
   }
   template <class Table>
   void compareOrder( const Table& table ) const {
      auto expected = stored_.begin();
      for ( auto at = table.begin(); at != table.end(); ++at, ++expected ) {
         FUZZ_CHECK( expected != stored_.end() );
         FUZZ_CHECK( *at == *expected );
      }
      FUZZ_CHECK( expected == stored_.end() );
   }
   void compare( const IpGenPrefix& prefix ) const {
      IpGenPrefix longest;
      for ( const IpGenPrefix& each : stored_ ) {
         if ( !each.contains( prefix.address() ) ) continue;
         if ( each.length() > prefix.length() ) continue;
         if ( longest.isNone() || each.length() > longest.length() ) longest = each;
      }
      FUZZ_CHECK( trie_->longestMatch( prefix ) == longest );
   }
   // Clears as the reactors do.
   void clear() {
      if ( Routing::Trie* trie = trie_->trie4() ) {
         trie->handleDeletion();
         trie->handleInitialized();
      }
      if ( Routing::PatriciaTrie* trie = trie_->trie6() ) {
         trie->handleDeletion();
         trie->handleInitialized();
      }
      stored_.clear();
   }

   AddressFamily family_;
   Mox::Ptr<TrieGen> trie_;
   std::set<IpGenPrefix> stored_;
};

}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   constexpr size_t kStep = 5;
   if ( size == 0 ) return 0;
   Steps steps( data[0] % 2 == 0 ? AddressFamily::ipv4 : AddressFamily::ipv6 );
   for ( size_t at = 1; at + kStep <= size; at += kStep ) steps.step( data + at );
   steps.compareAll();
   return 0;
}
