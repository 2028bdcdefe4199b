// The cost of entities: a notification against its peer, a raw virtual call through
// an intrusive list, and the memory of a full router's interface records.
//
// Run it with --benchmark_enable_random_interleaving=true
// --benchmark_repetitions=20: then both sides meet the same noise, and the medians
// compare.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <malloc.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <vector>

#include "model/Status.h"

namespace Routing::Pim::SparseMode {
namespace {

// The peer: code written by hand for one attribute, without the guarantees for
// observers that come and go meanwhile.
class RawSubject {
 public:
   class Observer {
    public:
      virtual ~Observer() = default;
      virtual void onIfIndex() = 0;

    private:
      friend class RawSubject;
      Observer* next_ = nullptr;
   };

   uint32_t ifIndex() const { return ifIndex_; }
   void ifIndexIs( uint32_t value ) {
      if ( ifIndex_ == value ) return;
      ifIndex_ = value;
      for ( Observer* o = head_; o != nullptr; o = o->next_ ) o->onIfIndex();
   }
   void attach( Observer& observer ) {
      observer.next_ = head_;
      head_ = &observer;
   }

 private:
   uint32_t ifIndex_ = 0;
   Observer* head_ = nullptr;
};

// Two observer types on either side, so that the compiler cannot tell which is
// called.
template <class Base, int step>
struct Counting : Base {
   uint64_t calls = 0;
   void onIfIndex() override { calls += step; }
};

template <class Base>
std::vector<std::unique_ptr<Base>> observers( int64_t count ) {
   std::vector<std::unique_ptr<Base>> all;
   for ( int64_t i = 0; i < count; ++i ) {
      if ( i % 2 == 0 ) {
         all.push_back( std::make_unique<Counting<Base, 1>>() );
      } else {
         all.push_back( std::make_unique<Counting<Base, 2>>() );
      }
   }
   return all;
}

template <class Subject>
void change( benchmark::State& state, Subject& subject ) {
   uint32_t value = 0;
   for ( auto _ : state ) {
      subject.ifIndexIs( ++value );
      benchmark::ClobberMemory();
   }
}

// Gives the observers of interface records the public destructor that the list
// needs.
struct IntfObserver : Intf::NotifieeConst {};

void notifyRaw( benchmark::State& state ) {
   RawSubject subject;
   auto all = observers<RawSubject::Observer>( state.range( 0 ) );
   for ( auto& observer : all ) subject.attach( *observer );
   change( state, subject );
}

void notifyEntity( benchmark::State& state ) {
   auto intf = Mox::newEntity<Intf>( Vantu::IntfId( "eth1" ), nullptr );
   auto all = observers<IntfObserver>( state.range( 0 ) );
   for ( auto& observer : all ) observer->notifierIs( intf.get() );
   change( state, *intf );
}

BENCHMARK( notifyRaw )->Arg( 0 )->Arg( 1 )->Arg( 4 );
BENCHMARK( notifyEntity )->Arg( 0 )->Arg( 1 )->Arg( 4 );

size_t heapBytes() {
   struct mallinfo2 info = mallinfo2();
   return info.uordblks + info.hblkhd;
}

size_t residentBytes() {
   size_t total = 0, resident = 0;
   std::ifstream( "/proc/self/statm" ) >> total >> resident;
   return resident * static_cast<size_t>( sysconf( _SC_PAGESIZE ) );
}

// 600,000 interface records on 10,000 routes, unobserved. The routes are made
// before the measurement; their collections are empty then.
void reportMemory() {
   constexpr uint32_t kRoutes = 10000, kIntfsPerRoute = 60;
   std::vector<Vantu::IntfId> intfs;
   for ( uint32_t i = 0; i < kIntfsPerRoute; ++i ) {
      intfs.emplace_back( fmt::format( "Vlan{}", i ) );
   }
   auto status = statusFactory( L3::VrfName( "default" ) );
   for ( uint32_t i = 0; i < kRoutes; ++i ) {
      const in_addr group{ htonl( 0xe9fc0000 + i ) };
      status->routeIs( { {}, Vantu::IpGenAddr( group ) } );
   }
   size_t heap = heapBytes(), resident = residentBytes();
   for ( Route& route : status->route() ) {
      for ( Vantu::IntfId intf : intfs ) route.routeIntfIs( intf, &route );
   }
   constexpr double kMega = 1e6;
   fmt::print(
      "{} interface records of {} bytes on {} routes: heap {:.1f} MB, "
      "resident {:.1f} MB\n",
      kRoutes * kIntfsPerRoute, sizeof( Intf ), kRoutes,
      static_cast<double>( heapBytes() - heap ) / kMega,
      static_cast<double>( residentBytes() - resident ) / kMega );
   fmt::print( "bytes: Entity {}, observer {}, slot {}, Route {}\n",
               sizeof( Mox::Entity ), sizeof( Mox::Entity::NotifieeConst ),
               sizeof( Mox::HashedSlots::Slot ), sizeof( Route ) );
}

}
}

int main( int argc, char** argv ) {
   Routing::Pim::SparseMode::reportMemory();
   benchmark::Initialize( &argc, argv );
   if ( benchmark::ReportUnrecognizedArguments( argc, argv ) ) return 1;
   benchmark::RunSpecifiedBenchmarks();
}
