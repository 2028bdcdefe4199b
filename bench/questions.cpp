// How long the show tool takes for the questions that compare everything: `check`, and
// `explain` of a group without interface, against `routes --count`, which reads the same
// tables. In a network namespace of its own, where the kernel has an entry of each route;
// the event log is full. Needs the rights to make one.
//
// Prints one line a question. `bench_questions [routes [interfaces [rounds]]]`, where
// PIMSM_SHOW may name another program to ask.

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/mroute.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>

#include <cstring>
#include <filesystem>

#include "bench/FullAgent.h"
#include "platform/loop/RealClock.h"
#include "published/EventLog.h"
#include "published/MfibStatus.h"
#include "published/Status.h"

namespace Routing::Pim::SparseMode {
namespace {

[[noreturn]] void fail( const char* what ) {
   fmt::print( stderr, "{}: {}\n", what, std::strerror( errno ) );
   std::exit( 1 );
}

std::string nameOf( unsigned intf ) {
   return "eth" + std::to_string( intf );
}
std::string addressOf( unsigned intf, unsigned host ) {
   return fmt::format( "192.0.{}.{}", intf, host );
}

// The namespace's links and the kernel's table of entries.
class Kernel {
 public:
   explicit Kernel( unsigned intfs ) {
      if ( unshare( CLONE_NEWNET ) != 0 ) fail( "no network namespace" );
      socket_ = socket( AF_INET, SOCK_RAW, IPPROTO_IGMP );
      if ( set( MRT_INIT, 1 ) != 0 ) fail( "no multicast routing" );
      for ( unsigned i = 0; i < intfs; ++i ) addLink( i );
   }

   uint32_t indexOf( unsigned intf ) const {
      return if_nametoindex( nameOf( intf ).c_str() );
   }

   void add( const RouteKey& key, unsigned intfs ) {
      mfcctl entry{};
      std::memcpy( &entry.mfcc_origin, key.source.bytes().data(), 4 );
      std::memcpy( &entry.mfcc_mcastgrp, key.group.bytes().data(), 4 );
      for ( unsigned i = 1; i < intfs; ++i ) entry.mfcc_ttls[i] = 1;
      if ( set( MRT_ADD_MFC, entry ) != 0 ) fail( "an entry is refused" );
   }

 private:
   template <class T>
   int set( int option, const T& value ) {
      return setsockopt( socket_, IPPROTO_IP, option, &value, sizeof value );
   }
   void addLink( unsigned intf ) {
      const std::string name = nameOf( intf );
      const std::string all = fmt::format(
         "ip link add {0} type veth peer name p{0} && ip link set p{0} up && ip "
         "link "
         "set {0} up && ip address add {1}/24 dev {0}",
         name, addressOf( intf, 1 ) );
      if ( std::system( all.c_str() ) != 0 ) std::exit( 1 );
      vifctl vif{};
      vif.vifc_vifi = static_cast<vifi_t>( intf );
      vif.vifc_flags = VIFF_USE_IFINDEX;
      vif.vifc_threshold = 1;
      vif.vifc_lcl_ifindex = static_cast<int>( indexOf( intf ) );
      if ( set( MRT_ADD_VIF, vif ) != 0 ) fail( "an interface is refused" );
   }
   int socket_ = -1;
};

// What the agent and the forwarding process publish beside the routes.
class Others {
 public:
   Others( const std::string& root, const Size& size, Kernel& kernel )
      : manager_( clock_, nullptr, root ) {
      using namespace Published;
      agent_ =
         FamilyStatus::mount( manager_,
                              FamilyStatus::mountPath( Vantu::AddressFamily::ipv4,
                                                       L3::VrfName( "default" ) ),
                              ::Brane::tableWriter, size.routes * size.intfs );
      mfib_ = MfibStatus::mount( manager_,
                                 MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                                        L3::VrfName( "default" ) ),
                                 ::Brane::tableWriter, size.routes );
      for ( unsigned i = 0; i < size.intfs; ++i ) publish( i, kernel.indexOf( i ) );
      for ( unsigned i = 0; i < size.routes; ++i ) {
         mfib_->cacheIs( { keyOf( i ), 100, 10000, 0, BenchClock::wall() } );
         kernel.add( keyOf( i ), size.intfs );
      }
      log( size );
   }

 private:
   void publish( unsigned i, uint32_t index ) {
      using namespace Published;
      const Vantu::IntfId name( nameOf( i ) );
      Interface intf{ name, Vantu::IpGenAddr( addressOf( i, 1 ) ), 24, i != 0, 1 };
      intf.link = linkUp;
      intf.speaks = true;
      intf.dr = Vantu::IpGenAddr( addressOf( i, i == 0 ? 254 : 1 ) );
      agent_->interfaceIs( intf );
      agent_->ownAddressIs(
         { { name, intf.address }, { addressOf( i, 0 ) + "/24" } } );
      Neighbor neighbor{ { name, Vantu::IpGenAddr( addressOf( i, 254 ) ), 0 } };
      neighbor.holdtime = 65535;
      agent_->neighborIs( neighbor );
      mfib_->vifIs( { name, i, index, 0, 0, 100, 10000 } );
   }
   void log( const Size& size ) {
      using namespace Published;
      EventLog log( manager_, agentLog, clock_ );
      for ( unsigned i = 0; i < EventLog::defaultEntries; ++i ) {
         Event event{ .kind = joinCame, .cause = byMessage };
         event.vrf = Text<104>( "default" );
         event.ipVersion = 4;
         event.intf = Vantu::IntfId( nameOf( 1 + i % ( size.intfs - 1 ) ) );
         event.group = keyOf( i % size.routes ).group;
         event.source = keyOf( i % size.routes ).source;
         event.address = Vantu::IpGenAddr( "192.0.1.254" );
         log.add( event );
      }
   }

   BenchClock clock_;
   Corvex::EntityManager manager_;
   Mox::Ptr<Published::FamilyStatus> agent_;
   Mox::Ptr<Published::MfibStatus> mfib_;
};

// The time of a question, and how many lines the answer has.
std::pair<double, size_t> ask( const std::string& root, Words question ) {
   const char* other = std::getenv( "PIMSM_SHOW" );
   const std::string out = root + "/answer";
   question.insert( question.begin(), "pimsm-show" );
   question.insert( question.end(), { "--root", root } );
   const Times times = timesOf( [&] {
      const pid_t pid = fork();
      if ( pid == 0 ) {
         dup2( open( out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600 ),
               STDOUT_FILENO );
         exec( other != nullptr ? other : PIMSM_SHOW, question );
      }
      waitpid( pid, nullptr, 0 );
   } );
   std::ifstream file( out );
   size_t lines = 0;
   for ( std::string line; std::getline( file, line ); ) ++lines;
   return { times.cpu, lines };
}

void compare( const std::string& root, const Size& size ) {
   const RouteKey key = keyOf( size.routes / 2 );
   const std::string group = Vantu::valueToStrep( key.group );
   const Words questions[] = { { "routes", "--count" },
                               { "check" },
                               { "explain", group, "--interval", "0.1" } };
   std::vector<double> times[std::size( questions )];
   for ( unsigned round = 0; round < size.rounds; ++round ) {
      for ( size_t i = 0; i < std::size( questions ); ++i ) {
         const auto [time, lines] = ask( root, questions[i] );
         times[i].push_back( time );
         if ( round == 0 )
            fmt::print( "{}: {} lines\n", fmt::join( questions[i], " " ), lines );
      }
   }
   for ( size_t i = 0; i < std::size( questions ); ++i )
      fmt::print( "{}: {:.0f} ms of processor time, {:.2f} of the count\n",
                  questions[i][0], 1e3 * median( times[i] ),
                  median( times[i] ) / median( times[0] ) );
}

}
}

int main( int argc, char** argv ) {
   using namespace Routing::Pim::SparseMode;
   const Size size = sizeOf( argc, argv );
   char root[] = "/dev/shm/pimsm-bench-XXXXXX";
   if ( mkdtemp( root ) == nullptr ) return 1;
   {
      Kernel kernel( size.intfs );
      Agent agent( root, size );
      const Others rest( root, size, kernel );
      compare( root, size );
   }
   std::filesystem::remove_all( root );
   return 0;
}
