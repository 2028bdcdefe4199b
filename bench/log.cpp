// What an event costs its writer: a new one, the same refusal again, and a copy of as
// many bytes to shared memory.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>

#include "platform/loop/RealClock.h"
#include "published/EventLog.h"

namespace {

class Log {
 public:
   ~Log() { std::filesystem::remove_all( root_ ); }
   Published::EventLog& operator*() { return log_; }

 private:
   std::string root_ = "/dev/shm/bench-log-" + std::to_string( getpid() );
   Mox::Loop loop_;
   Mox::RealClock clock_{ loop_ };
   Corvex::EntityManager manager_{ clock_, nullptr, root_ };
   Published::EventLog log_{ manager_, Published::agentLog, clock_ };
};

Published::Event join() {
   Published::Event event{ .kind = Published::joinCame,
                           .cause = Published::byMessage };
   event.vrf = Published::Text<104>( "default" );
   event.ipVersion = 4;
   event.intf = Vantu::IntfId( "Ethernet7/1" );
   event.group = Vantu::IpGenAddr( "233.252.0.1" );
   event.source = Vantu::IpGenAddr( "198.51.100.7" );
   event.address = Vantu::IpGenAddr( "192.0.2.11" );
   return event;
}

void BM_Event( benchmark::State& state ) {
   Log log;
   const Published::Event event = join();
   for ( auto _ : state ) ( *log ).add( event );
}
BENCHMARK( BM_Event );

void BM_SameRefusal( benchmark::State& state ) {
   Log log;
   Published::Event event = join();
   event.kind = Published::refused;
   for ( auto _ : state ) ( *log ).add( event );
}
BENCHMARK( BM_SameRefusal );

// To a ring of the same size, without checksum, time and order.
void BM_Copy( benchmark::State& state ) {
   constexpr size_t kStride = 320, kEntries = 65536;
   std::vector<std::byte> ring( kStride * kEntries );
   const Published::Event event = join();
   Brane::FlatForm<Published::Event>::Bytes bytes{};
   Brane::FlatForm<Published::Event>::write( event, bytes );
   size_t next = 0;
   for ( auto _ : state ) {
      std::memcpy( ring.data() + kStride * ( next++ % kEntries ), &bytes,
                   sizeof bytes );
      benchmark::ClobberMemory();
   }
}
BENCHMARK( BM_Copy );

}

BENCHMARK_MAIN();
