// `pimsm-show watch` at a terminal of its own.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <csignal>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/apps/mirror/Published.h"
#include "tests/support/Program.h"

namespace Show {
namespace {

class AtTerminal {
 public:
   AtTerminal( const std::string& options, const char* term = "xterm" ) {
      winsize size{ 24, 80, 0, 0 };
      if ( openpty( &terminal_, &line_, nullptr, nullptr, &size ) != 0 ) abort();
      tcgetattr( terminal_, &before_ );
      std::vector<std::string> words = { PIMSM_SHOW };
      std::istringstream in( options );
      for ( std::string word; in >> word; ) words.push_back( word );
      std::vector<char*> arguments;
      for ( std::string& word : words ) arguments.push_back( word.data() );
      arguments.push_back( nullptr );
      pid_ = fork();
      if ( pid_ != 0 ) return;
      prctl( PR_SET_PDEATHSIG, SIGKILL );
      setenv( "TERM", term, 1 );
      close( terminal_ );
      login_tty( line_ );
      execv( PIMSM_SHOW, arguments.data() );
      _exit( 127 );
   }
   ~AtTerminal() {
      if ( pid_ > 0 ) {
         kill( pid_, SIGKILL );
         waitpid( pid_, nullptr, 0 );
      }
      close( terminal_ );
      close( line_ );
   }
   AtTerminal( const AtTerminal& ) = delete;
   AtTerminal& operator=( const AtTerminal& ) = delete;

   // The whole output to the terminal.
   const std::string& shown() const { return shown_; }

   // Waits for the text, running `meanwhile` from time to time.
   testing::AssertionResult shows(
      const std::string& text, const std::function<void()>& meanwhile = [] {} ) {
      const auto end = Clock::now() + Mox::Test::Program::deadline;
      while ( shown_.find( text ) == std::string::npos ) {
         if ( Clock::now() > end )
            return testing::AssertionFailure() << text << " not in " << shown_;
         meanwhile();
         read();
      }
      return testing::AssertionSuccess();
   }
   void type( const std::string& keys ) {
      ASSERT_EQ( write( terminal_, keys.data(), keys.size() ),
                 ssize_t( keys.size() ) );
   }
   void resize( unsigned short rows, unsigned short columns ) {
      winsize size{ rows, columns, 0, 0 };
      ioctl( terminal_, TIOCSWINSZ, &size );
   }
   void signal( int number ) const { kill( pid_, number ); }

   // Waits for the program's end, and reads the rest of its output.
   int status() {
      const auto end = Clock::now() + Mox::Test::Program::deadline;
      int status = 0;
      while ( waitpid( pid_, &status, WNOHANG ) == 0 ) {
         if ( Clock::now() > end ) return -1;
         read();
      }
      pid_ = 0;
      read();
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
   }
   // Has the terminal its former settings?
   bool restored() const {
      termios now{};
      tcgetattr( terminal_, &now );
      return now.c_iflag == before_.c_iflag && now.c_oflag == before_.c_oflag &&
             now.c_lflag == before_.c_lflag &&
             memcmp( now.c_cc, before_.c_cc, sizeof now.c_cc ) == 0;
   }

 private:
   using Clock = std::chrono::steady_clock;

   void read() {
      pollfd item{ terminal_, POLLIN, 0 };
      char buffer[4096];
      while ( poll( &item, 1, 20 ) == 1 ) {
         const ssize_t count = ::read( terminal_, buffer, sizeof buffer );
         if ( count <= 0 ) return;
         shown_.append( buffer, static_cast<size_t>( count ) );
      }
   }

   int terminal_ = -1, line_ = -1;
   pid_t pid_ = -1;
   termios before_{};
   std::string shown_;
};

class WatchProgram : public testing::Test {
 protected:
   std::string watch( const std::string& options = "" ) const {
      return "watch -4 --vrf default --root " + router.root.path() + ' ' + options;
   }
   ShownRouter router;
};

// The sequences by which ncurses takes over and restores a terminal like xterm.
constexpr const char *kTakes = "\033[?1049h", *kGivesBack = "\033[?1049l";

TEST_F( WatchProgram, LeavesTheTerminalAsItWas ) {
   const std::pair<const char*, std::function<void( AtTerminal& )>> ways[] = {
      { "q", []( AtTerminal& at ) { at.type( "q" ); } },
      { "^C", []( AtTerminal& at ) { at.type( "\003" ); } },
      { "SIGTERM", []( AtTerminal& at ) { at.signal( SIGTERM ); } } };
   for ( const auto& [name, leave] : ways ) {
      SCOPED_TRACE( name );
      AtTerminal terminal( watch() );
      ASSERT_TRUE( terminal.shows( "route 1 of 5" ) );
      EXPECT_NE( terminal.shown().find( kTakes ), std::string::npos );
      EXPECT_FALSE( terminal.restored() );
      leave( terminal );
      EXPECT_EQ( terminal.status(), 0 );
      EXPECT_TRUE( terminal.restored() );
      EXPECT_NE( terminal.shown().find( kGivesBack ), std::string::npos );
   }
}

TEST_F( WatchProgram, FollowsKeysSizeAndTables ) {
   AtTerminal terminal( watch() );
   ASSERT_TRUE( terminal.shows( "route 1 of 5" ) );
   const std::string whole = "\f";     // ^L: draws everything
   terminal.type( "\033OF" + whole );  // end
   EXPECT_TRUE( terminal.shows( "route 5 of 5" ) );
   terminal.type( "\033OA" + whole );  // up: the last row of the route before
   EXPECT_TRUE( terminal.shows( "route 4 of 5" ) );
   terminal.resize( 50, 200 );
   EXPECT_TRUE( terminal.shows( "\033[50d" ) ) << "the footer's new row";
   router.ipv4.vrf()->routeDel( SmTest::wcKey( "239.1.10.1" ) );
   router.ipv4.publish();
   EXPECT_TRUE( terminal.shows( "of 4;", [&] { terminal.type( whole ); } ) );
   terminal.type( "q" );
   EXPECT_EQ( terminal.status(), 0 );
}

TEST_F( WatchProgram, SaysThatTheAgentIsGoneByItsStatus ) {
   AtTerminal terminal( watch( "--json-lines --iface eth3" ) );
   auto sg = router.ipv4.vrf().sg( "198.51.100.7", "239.1.2.3" );
   // Waits until the program listens.
   ASSERT_TRUE( terminal.shows( "}\r\n", [&] {
      sg.intf( "eth3" )->forwardIs( !sg.intf( "eth3" )->forward() );
      router.ipv4.publish();
   } ) );
   const auto change = nlohmann::json::parse(
      terminal.shown().substr( 0, terminal.shown().find( '\r' ) ) );
   EXPECT_EQ( change["op"], "update" );
   EXPECT_EQ( change["interface"], "eth3" );
   router.ipv4.writer.reset();
   router.ipv4.restart.reset();
   router.ipv4.tables.reset();
   EXPECT_TRUE( terminal.shows( "writer-gone" ) );
   terminal.signal( SIGTERM );
   EXPECT_EQ( terminal.status(), 5 );
   AtTerminal late( watch( "--json-lines" ) );
   EXPECT_TRUE( late.shows( R"("op":"writer-gone"})" ) ) << "gone before it began";
}

TEST_F( WatchProgram, FollowsVrfsThatGoAndCome ) {
   const std::string all = "watch -4 --root " + router.root.path();
   AtTerminal screen( all ), lines( all + " --json-lines" );
   ASSERT_TRUE( screen.shows( "vrf red ipv4" ) );
   auto sg = router.ipv4.vrf().sg( "198.51.100.7", "239.1.2.3" );
   ASSERT_TRUE( lines.shows( "}\r\n", [&] {
      sg.intf( "eth3" )->forwardIs( !sg.intf( "eth3" )->forward() );
      router.ipv4.publish();
   } ) );
   router.red.manager.removeTables( router.red.path );
   EXPECT_TRUE( lines.shows( R"("vrf":"red","family":"ipv4","op":"vrf-gone"})" ) );
   Published blue( router.clock, router.root.path(), Vantu::AddressFamily::ipv4,
                   "blue" );
   blue.vrf().wc( "239.7.7.7" ).rpf( "eth0" );
   blue.publish();
   const std::string come = R"("vrf":"blue","family":"ipv4","op":)";
   EXPECT_TRUE( lines.shows( come + R"("vrf-new"})" ) );
   EXPECT_TRUE( lines.shows( come + R"("add","group":"239.7.7.7")" ) );
   EXPECT_TRUE( screen.shows( "vrf blue ipv4" ) );
   lines.signal( SIGTERM );
   EXPECT_EQ( lines.status(), 0 ) << "a VRF that went is no agent that went";
}

// Ends even if nothing changes.
TEST_F( WatchProgram, EndsWhenNobodyReads ) {
   Mox::Test::Program shell(
      { "/bin/sh", "-c",
        "{ " PIMSM_SHOW " " + watch() + "; echo ended with $? >&2; } | true" } );
   EXPECT_EQ( shell.wait(), 0 );
   EXPECT_EQ( shell.err(), "ended with 0\n" );
}

TEST_F( WatchProgram, RefusesATerminalThatItDoesNotKnow ) {
   for ( const char* type : { "no-such-terminal", "dumb" } ) {
      SCOPED_TRACE( type );
      AtTerminal terminal( watch(), type );
      EXPECT_EQ( terminal.status(), 2 );
      EXPECT_NE( terminal.shown().find( "cannot use this terminal" ),
                 std::string::npos )
         << terminal.shown();
      EXPECT_TRUE( terminal.restored() );
   }
}

}
}
