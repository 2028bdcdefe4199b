// A reader and a writer on one mapping, in two threads, so that the thread
// sanitizer can see the copy protocol. Two mappings of one file are two memories to
// it.
#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>
#include <thread>

#include "Support.h"
#include "platform/shm/detail/Instance.h"
#include "platform/shm/detail/Order.h"

namespace Brane::Test {
namespace {

class CopyRace : public TableTest {};

TEST_F( CopyRace, LeavesEveryCopyWhole ) {
   constexpr uint64_t copies = 5000000;
   { TableWriter writer( path, layout, 4, options ); }
   Detail::Descriptor file( Detail::openFile( path, O_RDWR ) );
   uint64_t size = std::filesystem::file_size( path );
   Detail::Instance instance( file.get(), size, layout, path );
   auto* base = const_cast<std::byte*>( instance.view().base );
   ASSERT_EQ( mprotect( base, size, PROT_READ | PROT_WRITE ), 0 );
   const Detail::WriterView view{
      base, instance.geometry(), { testSeed[0], testSeed[1] } };
   // A record begins with its key.
   const Record first = Record::of( 1, 1 );
   const Key& key = first.key;
   const uint64_t hash = instance.hashOf( &first );
   const Position position = view.geometry.homeOf( hash ) * Detail::lineWords;
   // The stores of put() and remove(), alternating between two slots: they are
   // reused as soon as possible.
   std::atomic<bool> over = false;
   std::thread writer( [&] {
      for ( uint64_t sequence = 1; !over; ++sequence ) {
         Detail::Place place{ position, view.index()[position] };
         if ( sequence % 16 == 0 && place.word ) {
            Detail::retract( view, place, hash, sequence );
            continue;
         }
         Record record = Record::of( key.id, sequence );
         uint32_t slot = sequence % 2;
         Detail::claimSlot( view, slot, sequence );
         Detail::fillSlot( view, &record, { sequence, slot, hash } );
         Detail::publish( view, place, { sequence, slot, hash } );
      }
   } );
   uint64_t latest = 0, found = 0;
   while ( found < copies && !HasFailure() ) {
      Record record;
      auto copy = instance.lookup( &key, hash, &record, nullptr );
      EXPECT_NE( copy.result, lookupDamaged );
      if ( copy.result != lookupFound ) continue;
      EXPECT_TRUE( record.whole() );
      EXPECT_GE( record.generation, latest );
      latest = record.generation;
      ++found;
   }
   over = true;
   writer.join();
}

}
}
