// Random walks of sources and groups against a plain model that copies, changes and
// stores whole entries. Each notification is compared with the histogram at that
// moment, which also checks the order of the writes.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/count/Counting.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Addr = Vantu::IpGenAddr;

class PlainHistogram {
 public:
   using Entry = std::set<Addr>;

   void file( const Addr& address, uint32_t count ) {
      Entry entry = at( count );
      entry.insert( address );
      store( count, entry );
   }
   void move( const Addr& address, size_t entries, bool added ) {
      const auto count = uint32_t( entries );
      const uint32_t before = added ? count - 1 : count + 1;
      file( address, count );
      Entry entry = at( before );
      entry.erase( address );
      store( before, entry );
      if ( !at( before ).empty() ) return;
      entries_.erase( before );
      hear( before );
   }
   Mox::Test::Heard take() { return std::exchange( heard_, {} ); }

 private:
   Entry at( uint32_t count ) const {
      auto found = entries_.find( count );
      return found == entries_.end() ? Entry() : found->second;
   }
   void store( uint32_t count, const Entry& entry ) {
      auto found = entries_.find( count );
      if ( found != entries_.end() && found->second == entry ) return;
      entries_[count] = entry;
      hear( count );
   }
   void hear( uint32_t count ) {
      std::map<uint32_t, IpAddrCollection> now;
      for ( const auto& [n, entry] : entries_ ) {
         for ( now[n]; const Addr& address : entry ) now[n].addrIs( address, true );
      }
      heard_.push_back( std::to_string( count ) + ": " + histogramText( now ) );
   }

   std::map<uint32_t, Entry> entries_;
   Mox::Test::Heard heard_;
};

// Sources with their groups, or groups with their sources.
using PlainTree = std::map<Addr, std::map<Addr, bool>>;

class Walk : public testing::TestWithParam<int> {
 protected:
   Walk() {
      auto listen = []( auto& recorder, auto& heard, auto text ) {
         recorder.inside = [&heard, text]( const Mox::String& what ) {
            heard.push_back( what.substr( what.find( ' ' ) + 1 ) + ": " + text() );
         };
      };
      listen( c.sourcesHeard, sourcesHeard, [this] { return c.sources(); } );
      listen( c.groupsHeard, groupsHeard, [this] { return c.groups(); } );
   }

   unsigned pick( unsigned n ) { return random() % n; }

   void restart() {
      c.sm.reset();
      c.start();
      for ( const auto& [address, entries] : sources ) {
         plainSources.file( address, uint32_t( entries.size() ) );
      }
      for ( const auto& [address, entries] : groups ) {
         plainGroups.file( address, uint32_t( entries.size() ) );
      }
   }
   void stepSource( const Addr& source, const Addr& group, unsigned what ) {
      if ( what == 0 ) {
         c.status->sourceDel( source );
         sources.erase( source );
         return;
      }
      auto entity = c.status->sourceIs( source );
      what < 4 ? (void)entity->sourceGroupDel( group )
               : entity->sourceGroupIs( group, what > 5 );
      auto& entries = sources[source];
      if ( !change( entries, group, what ) ) return;
      plainSources.move( source, entries.size(), what > 5 );  // the flag decides
   }
   void stepGroup( const Addr& group, const Addr& source, unsigned what ) {
      if ( what == 0 ) {
         c.groupSourceMap->groupDel( group );
         groups.erase( group );
         return;
      }
      auto entity = c.groupSourceMap->groupIs( group );
      what < 4 ? (void)entity->groupSourceDel( source )
               : entity->groupSourceIs( source, what > 5 );
      auto& entries = groups[group];
      if ( !change( entries, source, what ) ) return;
      plainGroups.move( group, entries.size(), what > 3 );  // the presence decides
   }
   // 1 to 3 removes, 4 and 5 write false, more writes true.
   static bool change( std::map<Addr, bool>& entries, const Addr& key,
                       unsigned what ) {
      if ( what < 4 ) return entries.erase( key ) != 0;
      auto [entry, added] = entries.try_emplace( key, what > 5 );
      const bool changed = added || entry->second != ( what > 5 );
      entry->second = what > 5;
      return changed;
   }

   unsigned seed = std::random_device()();
   std::mt19937 random{ seed };
   Counting c;
   Mox::Test::Heard sourcesHeard, groupsHeard;
   PlainTree sources, groups;
   PlainHistogram plainSources, plainGroups;
};

TEST_P( Walk, WritesWhatCopiedEntriesWouldInTheSameOrder ) {
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   restart();
   const unsigned heads = unsigned( GetParam() );
   for ( int step = 0; step < 3000; ++step ) {
      const unsigned what = pick( 10 ), head = pick( heads ), entry = pick( 4 );
      if ( pick( 200 ) == 0 ) restart();
      stepSource( sourceAddr( head ), groupAddr( entry ), what );
      stepGroup( groupAddr( head ), sourceAddr( entry ), what );
      ASSERT_EQ( std::exchange( sourcesHeard, {} ), plainSources.take() ) << step;
      ASSERT_EQ( std::exchange( groupsHeard, {} ), plainGroups.take() ) << step;
      ASSERT_EQ( c.sm->srcHandler().size(), c.status->source().size() );
      ASSERT_EQ( c.sm->grpHandler().size(), c.groupSourceMap->group().size() );
   }
}

// A lone address empties each entry that it leaves; one among many seldom does.
INSTANTIATE_TEST_SUITE_P( Heads, Walk, testing::Values( 1, 3, 12 ) );

}
}
