#include "tests/netns/Namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <sstream>

#include "tests/support/Program.h"

namespace Netns {
namespace {

constexpr const char* kIp = "/bin/ip";
constexpr const char* kOwn = "/proc/thread-self/ns/net";

using Mox::Loop;

}

std::string notPermitted() {
   if ( access( kIp, X_OK ) != 0 ) return "no ip(8) here";
   try {
      Namespace space;
      space.ip( "link add a0 type veth peer name b0" );
   } catch ( const std::exception& e ) {
      return std::string( "network namespaces are not permitted here: " ) +
             e.what();
   }
   return "";
}

Namespace::Namespace() {
   Loop::Fd former( open( kOwn, O_RDONLY | O_CLOEXEC ), "own namespace" );
   if ( unshare( CLONE_NEWNET ) != 0 )
      throw std::system_error( errno, std::generic_category(), "unshare" );
   file_ = std::make_unique<Loop::Fd>( open( kOwn, O_RDONLY | O_CLOEXEC ),
                                       "new namespace" );
   setns( former.value(), CLONE_NEWNET );
   ip( "link set lo up" );
}

Namespace::Inside::Inside( const Namespace& space )
   : former_( open( kOwn, O_RDONLY | O_CLOEXEC ), "own namespace" ) {
   if ( setns( space.file_->value(), CLONE_NEWNET ) != 0 )
      throw std::system_error( errno, std::generic_category(), "setns" );
}

Namespace::Inside::~Inside() {
   setns( former_.value(), CLONE_NEWNET );
}

std::string Namespace::ip( const std::string& arguments ) const {
   Mox::Test::Program::Arguments words = { kIp };
   std::istringstream stream( arguments );
   for ( std::string word; stream >> word; ) words.push_back( word );
   Inside inside( *this );
   Mox::Test::Ended ended = Mox::Test::runToEnd( words );
   if ( ended.status != 0 )
      throw std::runtime_error( "ip " + arguments + ": " + ended.err );
   return ended.out;
}

std::string Namespace::path() const {
   return "/proc/" + std::to_string( getpid() ) + "/fd/" +
          std::to_string( file_->value() );
}

void connect( const Namespace& a, const std::string& nameA, const Namespace& b,
              const std::string& nameB ) {
   a.ip( "link add " + nameA + " type veth peer name " + nameB + " netns " +
         b.path() );
   a.ip( "link set " + nameA + " up" );
   b.ip( "link set " + nameB + " up" );
}

}
