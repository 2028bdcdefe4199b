// Recorders whose store, in servers of NATS, has trouble. Every part compares the store
// with the tables afterwards, and follows the history: each line begins where the line
// before it ended, the last one ends at what stands, and none is there twice.
//
//    outage   the server is stopped, killed, started late, or killed and given back what
//             it had before, while changes go on
//    cluster  of three servers one is killed: a follower, the one that the recorder is
//             connected to, the leader of the state; the longest time in which no line
//             was stored
//    holders  two recorders of one router
//    crash    the recorder is killed when lines were sent, were acknowledged, or state
//             was sent; a proxy between it and the server knows which
//
// `bench_nats PART [routes [interfaces [changes a second [seconds or rounds]]]]`. Prints
// one line a figure.

#include <fcntl.h>
#include <fmt/format.h>

#include <atomic>
#include <filesystem>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

#include "apps/json/Trim.h"
#include "apps/store/detail/NatsNames.h"
#include "apps/store/detail/NatsRead.h"
#include "bench/FullAgent.h"
#include "bench/NatsCut.h"
#include "tests/support/NatsServers.h"

namespace Routing::Pim::SparseMode {
namespace {

using Json = nlohmann::ordered_json;
using Mox::Test::NatsServers;
using Mox::Test::TempRoot;

void pause( double seconds ) {
   usleep( static_cast<useconds_t>( 1e6 * seconds ) );
}

// An agent that changes its tables at a rate, in a thread of its own.
class Busy {
 public:
   Busy( const std::string& root, const Size& size, double rate )
      : agent_( root, size ), rate_( rate ) {}
   ~Busy() { stop(); }
   void start() {
      going_ = true;
      thread_ = std::thread( [this] {
         while ( going_ ) agent_.churn( rate_, 0.1 );
      } );
   }
   void stop() {
      going_ = false;
      if ( thread_.joinable() ) thread_.join();
   }

 private:
   Agent agent_;
   double rate_;
   std::atomic<bool> going_ = false;
   std::thread thread_;
};

class Run {
 public:
   Run( const Words& words, const std::string& log ) : log_( log ) {
      pid_ = fork();
      if ( pid_ != 0 ) return;
      prctl( PR_SET_PDEATHSIG, SIGKILL );
      const int file = open( log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600 );
      dup2( file, STDERR_FILENO );
      exec( words[0].c_str(), words );
   }
   ~Run() {
      if ( pid_ == 0 ) return;
      kill( pid_, SIGTERM );
      ended();
   }
   Run( const Run& ) = delete;
   Run& operator=( const Run& ) = delete;
   pid_t pid() const { return pid_; }
   void signal( int number ) const { kill( pid_, number ); }
   // Waits for its end.
   int ended() {
      int status = 0;
      waitpid( pid_, &status, 0 );
      pid_ = 0;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
   }
   double memory( const char* which ) const {
      return std::stod( "0" + field( which ) ) / 1000;
   }
   std::string told() const {
      std::ifstream file( log_ );
      return { std::istreambuf_iterator<char>( file ), {} };
   }

 private:
   std::string field( const std::string& name ) const {
      std::ifstream status( fmt::format( "/proc/{}/status", pid_ ) );
      for ( std::string word; status >> word; )
         if ( word == name && status >> word ) return word;
      return "";
   }
   pid_t pid_ = 0;
   std::string log_;
};

// When the server stored it, s since 1970.
double storedAt( const Fleet::NatsMessage& message ) {
   jsMsgMetaData* meta = nullptr;
   if ( natsMsg_GetMetaData( &meta, message.get() ) != NATS_OK ) return 0;
   const double at = 1e-9 * static_cast<double>( meta->Timestamp );
   jsMsgMetaData_Destroy( meta );
   return at;
}

// What stands, without times.
using State = std::map<std::string, std::string>;

class Bench {
 public:
   Bench( const Size& size, double rate, const std::string& store )
      : store_( store ), busy_( root_.path(), size, rate ) {
      std::filesystem::create_directory( files_.path() + "/reference" );
   }
   std::string file( const char* name ) const { return files_.path() + '/' + name; }
   std::string metrics() const { return file( "metrics" ); }
   Words words( const std::string& store ) const {
      return { PIMSM_RECORD, "--root", root_.path(),   "--store", store,
               "--router",   "r1",     "--keep-bytes", "2G" };
   }
   Words more( Words words, const Words& more ) const {
      words.insert( words.end(), more.begin(), more.end() );
      return words;
   }

   State stateOf( const std::string& store ) const {
      State state;
      Fleet::openReader( { store } )
         ->each( "r1", "route.",
                 [&]( const std::string& key, const std::string& value ) {
                    Json json = Json::parse( value );
                    json.at( 0 ).erase( "pimsm-state:created" );
                    state[key] = json.dump();
                 } );
      return state;
   }
   // What the tables have: recorded elsewhere.
   State wanted() const {
      const std::string store = "sqlite:" + file( "reference" );
      if ( Run( more( words( store ), { "--once" } ), file( "log.reference" ) )
              .ended() != 0 )
         throw std::runtime_error( "no reference" );
      return stateOf( store );
   }
   // Seconds until the store equals the tables, which rest.
   double settled( double since = BenchClock::wall() ) {
      constexpr double kLimit = 60;
      wanted_ = wanted();
      for ( ;; ) {
         State state;
         try {
            state = stateOf( store_ );
         } catch ( const Mox::Error& ) {
         }
         const double took = BenchClock::wall() - since;
         if ( state == wanted_ ) return took;
         if ( took > kLimit ) {
            size_t other = 0;
            for ( const auto& [key, value] : wanted_ ) other += state[key] != value;
            fmt::print( "FAILED: {} of {} keys are not current\n", other,
                        wanted_.size() );
            return took;
         }
         pause( 0.02 );
      }
   }
   // Until a recorder has brought the store up to date.
   void comes( const std::string& former = "" ) const {
      for ( ;; pause( 0.02 ) ) {
         const std::string now = instance();
         if ( !now.empty() && now != former ) return;
      }
   }
   // The run that says that it is complete.
   std::string instance() const {
      try {
         const auto reader = Fleet::openReader( { store_ } );
         const std::string key = Fleet::keyText( {} );
         const Json json = Json::parse( reader->values( "r1", { key } )[key] );
         if ( json["complete"] == true ) return json["instance"];
      } catch ( const std::exception& ) {
      }
      return "";
   }

   struct History {
      size_t lines = 0, twice = 0, resync = 0, doubled = 0, broken = 0, wrong = 0;
      size_t merged = 0;
      uint64_t missing = 0, last = 0;       // numbers of the stream's
      std::map<std::string, size_t> other;  // ops of no route
      std::vector<double> times;            // s since 1970, by the server
   };
   History history();

   const std::string store_;
   TempRoot root_;
   TempRoot files_{ TempRoot::InDirectory{ "/var/tmp" } };
   Busy busy_;
   State wanted_;
   Fleet::NatsNames names_{ "default" };

 private:
   using Members = std::map<std::string, Json>;
   static std::string nameOf( const Json& entry, const std::string& intf ) {
      return entry.at( "source-address" ).get<std::string>() + ' ' +
             entry.at( "group" ).get<std::string>() + ' ' + intf + ' ';
   }
   Members standing() const;
};

Bench::Members Bench::standing() const {
   Members all;
   for ( const auto& [key, value] : wanted_ )
      for ( const Json& each : Json::parse( value ) ) {
         const Json entry = Show::restored( each );
         for ( const Json& intf : entry.at( "pimsm-state:interface" ) )
            for ( const auto& [name, member] : intf.items() )
               all[nameOf( entry, intf.at( "name" ) ) + name] = member;
      }
   return all;
}

Bench::History Bench::history() {
   History found;
   std::set<std::string> ids;
   struct Last {
      Json before, after;
   };
   std::map<std::string, Last> last;
   const Fleet::NatsConnection connection( { store_ } );
   const auto follow = [&]( const Json& line ) {
      const bool resync = line.contains( "resync" );
      found.resync += resync;
      found.merged += line.contains( "merged" );
      for ( const auto& [member, pair] : line["changed"].items() ) {
         const auto [at, isNew] = last.try_emplace(
            nameOf( line, line.value( "interface", "" ) ) + member );
         Last& own = at->second;
         if ( !isNew && own.after != pair[0] ) {
            const bool again = resync && own.before == pair[0];
            found.doubled += again;
            found.broken += !again;
            if ( !again && found.broken < 4 )
               fmt::print( "broken: {} after {}\n", line.dump(), own.after.dump() );
         }
         own = { pair[0], pair[1] };
      }
   };
   Fleet::scanNats(
      connection, { names_.historyStream(), ">" },
      [&]( const Fleet::NatsMessage& message, const Fleet::NatsRead& read ) {
         ++found.lines;
         if ( found.last != 0 ) found.missing += read.sequence - found.last - 1;
         found.last = read.sequence;
         found.times.push_back( storedAt( message ) );
         found.twice +=
            !ids.insert( Fleet::headerOf( message, "Nats-Msg-Id" ) ).second;
         const Json line = Json::parse( Fleet::dataOf( message ) );
         if ( line.contains( "changed" ) && line.contains( "group" ) )
            follow( line );
         else
            ++found.other[line["op"]];
      } );
   const Members now = standing();
   for ( const auto& [name, own] : last ) {
      const auto at = now.find( name );
      found.wrong +=
         at == now.end() ? !own.after.is_null() : at->second != own.after;
   }
   return found;
}

void print( const Bench::History& history ) {
   fmt::print(
      "   {} lines ({} merged, {} resync); stored twice {}, told again as "
      "resync {}, not read {}, changes without a line {}, last lines that are not "
      "what stands {};",
      history.lines, history.merged, history.resync, history.twice, history.doubled,
      history.missing, history.broken, history.wrong );
   for ( const auto& [op, count] : history.other )
      fmt::print( " {} {}", count, op );
   fmt::print( "\n" );
   std::fflush( stdout );
}

// The value of a metric in a file; 0: it is not there.
double metric( const std::string& file, const std::string& name ) {
   std::ifstream in( file );
   for ( std::string line; std::getline( in, line ); )
      if ( line.starts_with( name + ' ' ) )
         return std::stod( line.substr( name.size() ) );
   return 0;
}

// The latest that the loop was meanwhile, s; and the most memory, MB.
class Watch {
 public:
   Watch( const Bench& bench, const Run& run )
      : thread_( [this, &bench, &run] {
           while ( going_ ) {
              late = std::max(
                 late, metric( bench.metrics(), "pimsm_record_late_seconds" ) );
              most = std::max( most, run.memory( "VmRSS:" ) );
              pause( 0.1 );
           }
        } ) {}
   ~Watch() { stop(); }
   void stop() {
      going_ = false;
      if ( thread_.joinable() ) thread_.join();
   }
   double late = 0, most = 0;

 private:
   std::atomic<bool> going_ = true;
   std::thread thread_;
};

void outage( const std::string& how, const Size& size, double rate,
             double seconds ) {
   NatsServers servers( 1, "", "/var/tmp" );
   Bench bench( size, rate, servers.url() );
   if ( how == "late" ) servers.kill( 0 );
   Run run( bench.more( bench.words( servers.url() ),
                        { "--sample", "1s", "--metrics", bench.metrics() } ),
            bench.file( "log" ) );
   bench.busy_.start();
   if ( how != "late" ) bench.comes();
   pause( 5 );
   const std::string own = servers.directory() + "/0", former = own + ".former";
   constexpr auto kAll = std::filesystem::copy_options::recursive;
   if ( how == "older" ) {
      servers.signal( 0, SIGSTOP );
      std::filesystem::copy( own, former, kAll );
      servers.signal( 0, SIGCONT );
   }
   double before = 0, late = 0;
   {
      Watch watch( bench, run );
      pause( 5 );
      watch.stop();
      before = watch.most;
      late = watch.late;
   }
   Watch away( bench, run );
   if ( how == "stopped" ) servers.signal( 0, SIGSTOP );
   if ( how == "killed" || how == "older" ) servers.kill( 0 );
   pause( seconds );
   if ( how == "older" ) {
      std::filesystem::remove_all( own );
      std::filesystem::rename( former, own );
   }
   away.stop();
   Watch back( bench, run );
   if ( how == "stopped" ) {
      servers.signal( 0, SIGCONT );
   } else {
      servers.start( 0 );
      servers.untilReady( 0 );
   }
   const double since = BenchClock::wall();
   bench.busy_.stop();
   const double current = bench.settled( since );
   bench.busy_.start();
   pause( 5 );
   bench.busy_.stop();
   const double again = bench.settled();
   pause( 1.5 );
   back.stop();
   fmt::print(
      "{} {:.0f} s at {:.0f} changes/s: memory {:.0f}, {:.0f} away, {:.0f} "
      "back MB ({:.2f} x); late {:.1f} before, {:.1f} away, {:.1f} ms back; "
      "current {:.2f} s after, and {:.2f} s after 5 s more\n",
      how, seconds, rate, before, away.most, back.most,
      std::max( away.most, back.most ) / before, 1e3 * late, 1e3 * away.late,
      1e3 * back.late, current, again );
   print( bench.history() );
   fmt::print( "{}", run.told() );
   std::fflush( stdout );
}

// The ports that a process is connected to.
std::set<int> peersOf( pid_t pid ) {
   std::set<std::string> sockets;
   for ( const auto& each : std::filesystem::directory_iterator(
            fmt::format( "/proc/{}/fd", pid ) ) ) {
      std::error_code gone;
      sockets.insert( std::filesystem::read_symlink( each, gone ).string() );
   }
   std::set<int> ports;
   std::ifstream file( "/proc/net/tcp" );
   std::string line;
   std::getline( file, line );
   while ( std::getline( file, line ) ) {
      std::istringstream words( line );
      std::string number, local, remote, state, skip, inode;
      words >> number >> local >> remote >> state;
      for ( int i = 0; i < 5; ++i ) words >> skip;
      words >> inode;
      if ( state == "01" && sockets.contains( "socket:[" + inode + "]" ) )
         ports.insert(
            std::stoi( remote.substr( remote.find( ':' ) + 1 ), nullptr, 16 ) );
   }
   return ports;
}

class Cluster {
 public:
   explicit Cluster( Bench& bench, NatsServers& servers )
      : servers_( servers ), bench_( bench ) {}

   struct Look {
      int leader = -1;
      bool current = true;
      uint64_t last = 0;
   };
   Look look( const std::string& stream ) {
      Look look;
      if ( !connection_ || connection_->closed() )
         connection_.emplace( Fleet::StoreAddress{ servers_.url() } );
      jsStreamInfo* info = nullptr;
      if ( js_GetStreamInfo( &info, connection_->streams(), stream.c_str(), nullptr,
                             nullptr ) != NATS_OK )
         return { -1, false, 0 };
      look.last = info->State.LastSeq;
      if ( info->Cluster != nullptr && info->Cluster->Leader != nullptr )
         look.leader = info->Cluster->Leader[1] - '0';
      int peers = 0;
      for ( int i = 0; info->Cluster != nullptr && i < info->Cluster->ReplicasLen;
            ++i, ++peers )
         look.current &= info->Cluster->Replicas[i]->Current &&
                         !info->Cluster->Replicas[i]->Offline;
      look.current &= look.leader >= 0 && peers == 2;
      jsStreamInfo_Destroy( info );
      return look;
   }
   std::string state() const { return bench_.names_.stateStream( "r1" ); }
   std::string lines() const { return bench_.names_.historyStream(); }
   bool current() {
      return look( state() ).current && look( lines() ).current &&
             look( bench_.names_.liveStream() ).current;
   }
   void untilCurrent() {
      const double limit = BenchClock::wall() + 60;
      while ( !current() && BenchClock::wall() < limit ) pause( 0.1 );
   }
   // Until lines are stored again.
   void untilGoesOn() {
      for ( int grown = 0; grown < 3; pause( 0.2 ) ) {
         const uint64_t last = look( lines() ).last;
         grown = last > last_ ? grown + 1 : 0;
         last_ = last;
      }
   }
   void stepDown( const std::string& stream ) {
      natsMsg* answer = nullptr;
      natsConnection_RequestString(
         &answer, connection_->get(),
         ( "$JS.API.STREAM.LEADER.STEPDOWN." + stream ).c_str(), "", 2000 );
      natsMsg_Destroy( answer );
      pause( 1 );
   }

 private:
   NatsServers& servers_;
   Bench& bench_;
   std::optional<Fleet::NatsConnection> connection_;
   uint64_t last_ = 0;
};

double utcNow() {
   return BenchClock::seconds( CLOCK_REALTIME );
}

void cluster( const Size& size, double rate, int rounds ) {
   NatsServers servers( 3, "", "/var/tmp" );
   Bench bench( size, rate, servers.url() );
   Run run( bench.more( bench.words( servers.url() ), { "--replicas", "3" } ),
            bench.file( "log" ) );
   bench.comes();
   bench.busy_.start();
   Cluster cluster( bench, servers );
   struct Kill {
      std::string role;
      double from, till, restored;
   };
   std::vector<Kill> kills;
   for ( int round = 0; round < rounds; ++round )
      for ( const char* role : { "follower", "connected", "leader" } ) {
         cluster.untilCurrent();
         int leader = -1, connected = -1;
         while ( leader < 0 || leader == connected || connected < 0 ) {
            leader = cluster.look( cluster.state() ).leader;
            connected = -1;
            const std::set<int> peers = peersOf( run.pid() );
            for ( int i = 0; i < 3; ++i )
               if ( peers.contains( servers.port( static_cast<size_t>( i ) ) ) )
                  connected = i;
            if ( leader >= 0 && leader == connected )
               cluster.stepDown( cluster.state() );
         }
         const int which = role[0] == 'l'   ? leader
                           : role[0] == 'c' ? connected
                                            : 3 - leader - connected;
         cluster.untilGoesOn();
         Kill kill{ role, utcNow(), 0, 0 };
         servers.kill( static_cast<size_t>( which ) );
         cluster.untilGoesOn();
         kill.till = utcNow();
         servers.start( static_cast<size_t>( which ) );
         servers.untilReady( static_cast<size_t>( which ) );
         cluster.untilCurrent();
         cluster.untilGoesOn();
         kill.restored = utcNow();
         kills.push_back( kill );
      }
   bench.busy_.stop();
   const double current = bench.settled();
   const Bench::History history = bench.history();
   std::map<std::string, std::vector<double>> down, up;
   const auto longest = [&]( double from, double till ) {
      double most = 0;
      auto at =
         std::lower_bound( history.times.begin(), history.times.end(), from );
      if ( at == history.times.begin() ) ++at;
      for ( ; at != history.times.end() && *( at - 1 ) < till; ++at )
         most = std::max( most, *at - *( at - 1 ) );
      return most;
   };
   for ( const Kill& kill : kills ) {
      down[kill.role].push_back( longest( kill.from, kill.till ) );
      up[kill.role].push_back( longest( kill.till, kill.restored ) );
   }
   for ( auto& [role, gaps] : down ) {
      std::sort( gaps.begin(), gaps.end() );
      fmt::print(
         "{} killed {} times: gap median {:.2f}, most {:.2f} s ({:.2f}); "
         "most when it comes back {:.2f} s\n",
         role, gaps.size(), gaps[gaps.size() / 2], gaps.back(),
         fmt::join( gaps, " " ),
         *std::max_element( up[role].begin(), up[role].end() ) );
   }
   fmt::print( "current {:.2f} s after the last change\n", current );
   print( history );
   fmt::print( "{}", run.told() );
}

// A recorder that has taken the router, whose former one is gone or stopped: started
// again as often as it is refused.
std::unique_ptr<Run> holds( const Bench& bench, const Words& words,
                            const char* log ) {
   const std::string former = bench.instance();
   std::unique_ptr<Run> run;
   for ( ;; pause( 0.2 ) ) {
      const std::string now = bench.instance();
      if ( !now.empty() && now != former ) return run;
      int ended = 0;
      if ( run != nullptr && waitpid( run->pid(), &ended, WNOHANG ) == 0 ) continue;
      if ( run != nullptr ) run->ended();
      run = std::make_unique<Run>( words, bench.file( log ) );
   }
}

void holders( const Size& size, double rate ) {
   NatsServers servers( 1, "", "/var/tmp" );
   Bench bench( size, rate, servers.url() );
   const Words words = bench.words( servers.url() );
   auto first = holds( bench, words, "log.first" );
   bench.busy_.start();
   double began = BenchClock::wall();
   int status = Run( words, bench.file( "log.second" ) ).ended();
   fmt::print( "the second exits {} after {:.2f} s\n", status,
               BenchClock::wall() - began );

   first->signal( SIGKILL );
   first->ended();
   began = BenchClock::wall();
   first = holds( bench, words, "log.first" );
   fmt::print( "after SIGKILL the next is complete after {:.2f} s\n",
               BenchClock::wall() - began );

   // As if on another host, where processes cannot be seen.
   first->signal( SIGKILL );
   first->ended();
   began = BenchClock::wall();
   Words elsewhere{ "/usr/bin/unshare", "--pid", "--fork", "--kill-child" };
   elsewhere.insert( elsewhere.end(), words.begin(), words.end() );
   auto other = holds( bench, elsewhere, "log.other" );
   fmt::print( "from another host after {:.2f} s\n", BenchClock::wall() - began );
   other->signal( SIGKILL );  // that program heeds nothing less
   other.reset();

   first = holds( bench, words, "log.first" );
   first->signal( SIGSTOP );
   pause( 20 );
   auto second = holds( bench, words, "log.second" );
   pause( 1 );
   began = BenchClock::wall();
   first->signal( SIGCONT );
   status = first->ended();
   const double exited = BenchClock::wall() - began;
   bench.busy_.stop();
   fmt::print( "stopped for 20 s, the first exits {} after {:.2f} s; ", status,
               exited );
   fmt::print( "the state is right after {:.2f} s\n", bench.settled( began ) );
   print( bench.history() );
   for ( const char* log : { "log.first", "log.second" } ) {
      std::ifstream file( bench.file( log ) );
      fmt::print( "{}", std::string( std::istreambuf_iterator<char>( file ), {} ) );
   }
}

void crash( const Size& size, double rate, unsigned seeds ) {
   NatsServers servers( 1, "", "/var/tmp" );
   NatsCut cut( servers.port( 0 ) );
   Bench bench( size, rate, servers.url() );
   const Words words = bench.words( cut.url() );
   auto run = std::make_unique<Run>( words, bench.file( "log" ) );
   bench.comes();
   std::map<NatsCut::Point, size_t> hits, resyncs;
   std::vector<double> took;
   size_t known = 0, rewritten = 0;
   for ( unsigned seed = 1; seed <= seeds; ++seed ) {
      std::mt19937 random( seed );
      const auto point = static_cast<NatsCut::Point>( random() % 3 );
      const std::string former = bench.instance();
      bench.busy_.start();
      pause( 0.001 * ( random() % 300 ) );
      cut.arm( point, 1 + random() % 20, run->pid() );
      run->ended();
      ++hits[point];
      pause( 0.001 * ( random() % 300 ) );
      bench.busy_.stop();
      const double began = BenchClock::wall();
      run = std::make_unique<Run>( words, bench.file( "log" ) );
      bench.comes( former );
      took.push_back( bench.settled( began ) );
      const Bench::History history = bench.history();
      resyncs[point] += history.resync - known;
      known = history.resync;
   }
   // Unchanged keys are not written.
   {
      const std::string former = bench.instance();
      run->signal( SIGKILL );
      run->ended();
      const uint64_t puts = cut.states();
      run = std::make_unique<Run>( words, bench.file( "log" ) );
      bench.comes( former );
      pause( 1 );
      rewritten = cut.states() - puts;
   }
   fmt::print(
      "{} kills: events sent {} ({} resync), acknowledged {} ({}), state sent "
      "{} ({}); equal {:.2f} s after the start (median); routes written "
      "unchanged: {}\n",
      seeds, hits[NatsCut::eventSent], resyncs[NatsCut::eventSent],
      hits[NatsCut::eventStored], resyncs[NatsCut::eventStored],
      hits[NatsCut::stateSent], resyncs[NatsCut::stateSent], median( took ),
      rewritten );
   print( bench.history() );
}

}
}

int main( int argc, char** argv ) {
   using namespace Routing::Pim::SparseMode;
   const std::string part = argc > 1 ? argv[1] : "";
   if ( Mox::Test::NatsServers::program().empty() ) {
      fmt::print( stderr, "no nats-server: run tools/install-dependencies test\n" );
      return 77;
   }
   const auto number = [&]( int i, double otherwise ) {
      return argc > i ? std::atof( argv[i] ) : otherwise;
   };
   setlinebuf( stdout );
   Size size;
   size.routes = static_cast<unsigned>( number( 2, 10000 ) );
   size.intfs = static_cast<unsigned>( number( 3, 6 ) );
   if ( part == "outage" ) {
      for ( const char* how : { "stopped", "killed", "late", "older" } )
         outage( how, size, number( 4, 2000 ), number( 5, 60 ) );
   } else if ( part == "cluster" ) {
      cluster( size, number( 4, 3000 ), static_cast<int>( number( 5, 10 ) ) );
   } else if ( part == "holders" ) {
      holders( size, number( 4, 500 ) );
   } else if ( part == "crash" ) {
      crash( size, number( 4, 2000 ), static_cast<unsigned>( number( 5, 50 ) ) );
   } else {
      fmt::print( stderr,
                  "usage: {} outage|cluster|holders|crash [routes [interfaces "
                  "[changes a second [seconds or rounds]]]]\n",
                  argv[0] );
      return 2;
   }
   return 0;
}
