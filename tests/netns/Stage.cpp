#include "tests/netns/Stage.h"

#include <fmt/format.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <regex>

namespace Netns {

using Mox::Test::Program;
using Scenario::Script;
using Scenario::ScriptError;
using Scenario::Words;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

namespace {

// The last members' leaves take so long, from LAN to LAN: 2 s for the members, and 3 s
// a LAN in which a prune could be overridden.
constexpr double kLeaving = 10.0;  // s
// Longer than joins and asserts of the bed's routers last, on a loaded machine.
constexpr int kTold = 90;  // s

const char* nameOf( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? "IPv4" : "IPv6";
}

// "  links: S-F F-L": the value of a key of the `config` block.
std::string setting( const Script& script, const std::string& key ) {
   const size_t at = script.config.find( "  " + key + ": " );
   if ( at == std::string::npos ) return "";
   const size_t from = at + key.size() + 4;
   return script.config.substr( from, script.config.find( '\n', from ) - from );
}

Bed::Plan planOf( const Script& script ) {
   // Each line of the key is one of the VRF's.
   const auto lines = [&]( const std::string& key ) {
      std::string out;
      std::istringstream config( script.config );
      for ( std::string each; std::getline( config, each ); )
         if ( each.rfind( "  " + key + ": ", 0 ) == 0 )
            out += "  " + each.substr( key.size() + 4 ) + '\n';
      return out;
   };
   Bed::Plan plan{ setting( script, "links" ),
                   setting( script, "routers" ),
                   setting( script, "lans" ),
                   setting( script, "rp" ),
                   lines( "vrf" ),
                   setting( script, "interface" ) };
   std::istringstream routers( plan.routers );
   for ( std::string router; routers >> router; ) {
      plan.vrfOf[router] = lines( "vrf of " + router );
      plan.further[router] = setting( script, "addresses of " + router );
   }
   return plan;
}

const char* givenStore() {
   return std::getenv( "PIMSM_FLEET_STORE" );
}

std::string storeIn( const std::string& root ) {
   return givenStore() == nullptr ? "sqlite:" + root + "/store" : givenStore();
}

// "T*1000": the groups from T on.
std::pair<std::string, int> manyOf( const std::string& text ) {
   const size_t star = text.find( '*' );
   return { text.substr( 0, star ),
            star == std::string::npos ? 1 : std::stoi( text.substr( star + 1 ) ) };
}

// The group behind it by that number.
IpGenAddr plus( const IpGenAddr& group, int number ) {
   auto bytes = group.bytes();
   const bool old = group.family() == AddressFamily::ipv4;
   bytes[old ? 1 : 12] = static_cast<uint8_t>( bytes[old ? 1 : 12] + number / 250 );
   bytes[old ? 3 : 15] = static_cast<uint8_t>( bytes[old ? 3 : 15] + number % 250 );
   return IpGenAddr::fromBytes( group.family(), bytes.data() );
}

// Memory of its own in KB, and processor time in ms.
Stage::Load loadOf( pid_t process ) {
   const std::string path = "/proc/" + std::to_string( process );
   std::ifstream stat( path + "/stat" ), pages( path + "/statm" );
   std::string word;
   for ( int i = 0; i < 13; ++i ) stat >> word;
   double user = 0, system = 0, all = 0, resident = 0, shared = 0;
   stat >> user >> system;
   pages >> all >> resident >> shared;
   const auto ticks = static_cast<double>( sysconf( _SC_CLK_TCK ) );
   const auto page = static_cast<double>( sysconf( _SC_PAGESIZE ) );
   return { ( resident - shared ) * page / 1024, ( user + system ) * 1000 / ticks };
}

}

Stage::Stage( const Script& script )
   : script_( script ),
     store_( storeIn( root_.path() ) ),
     bed_( planOf( script ), root_.path() ) {
   if ( Decoder::available() )
      decoder_.emplace( bed_.places(), root_.path() + "/bed.pcap" );
   bed_.startAll();
   if ( setting( script, "recorded" ).empty() && givenStore() == nullptr ) return;
   for ( const std::string& router : bed_.routers() ) bed_.record( router, store_ );
}

Stage::~Stage() {
   const char* const kept = std::getenv( "PIMSM_KEEP_PACKETS" );
   if ( kept == nullptr || !decoder_ ) return;
   decoder_.reset();
   std::filesystem::copy_file( root_.path() + "/bed.pcap", kept,
                               std::filesystem::copy_options::overwrite_existing );
}

void Stage::begin( bool explains ) {
   ++stories_;
   explains_ = explains;
   listening_ = 0;
}

void Stage::end() {
   receivers_.clear();
   senders_.clear();
   ended_ = now();
}

// "239.1.0.1/ff0e::1:1", moved to the story's own: 239.1.7.1, ff0e::7:1.
IpGenAddr Stage::group( const std::string& name, AddressFamily family ) const {
   const auto found = script_.names.find( name );
   if ( found == script_.names.end() ) throw ScriptError( "no group: " + name );
   const size_t stroke = found->second.find( '/' );
   const bool ipv4 = family == AddressFamily::ipv4;
   auto bytes = IpGenAddr( ipv4 ? found->second.substr( 0, stroke )
                                : found->second.substr( stroke + 1 ) )
                   .bytes();
   bytes[ipv4 ? 2 : 13] = static_cast<uint8_t>( stories_ );
   return IpGenAddr::fromBytes( family, bytes.data() );
}

// "(S,G)" as pimsm-show prints it; another word as it is.
std::string Stage::text( const std::string& word, AddressFamily family ) const {
   const size_t comma = word.find( ',' );
   if ( word.front() != '(' || comma == std::string::npos ) return word;
   const std::string source = word.substr( 1, comma - 1 );
   return fmt::format(
      "({}, {})",
      source == "*" ? source : valueToStrep( bed_.address( family, source ) ),
      valueToStrep(
         group( word.substr( comma + 1, word.size() - comma - 2 ), family ) ) );
}

Sender& Stage::senderOf( const IpGenAddr& group ) {
   for ( auto& [flow, sender] : senders_ ) {
      if ( flow.second == group ) return *sender;
   }
   throw ScriptError( "nobody sends to " + valueToStrep( group ) );
}

void Stage::act( const std::string& statement ) {
   if ( const auto defined = script_.defined.find( statement );
        defined != script_.defined.end() ) {
      for ( const std::string& each : defined->second ) act( each );
      return;
   }
   Words words( statement );
   const std::string first = words.next();
   if ( first[0] == '+' ) {
      return pause( std::stod( first.substr( 1 ) ) );
   }
   acted_ = now();
   if ( first == "kill" || first == "end" || first == "start" || first == "halt" ||
        first == "reboot" ) {
      actOnProgram( first, words );
   } else if ( first == "link" ) {
      link( words );
   } else if ( first == "path" || first == "check" ) {
      tells( first, words, 0 );
   } else if ( first == "until" ) {
      until( words );
   } else if ( first == "replug" ) {
      const std::string a = words.next();
      bed_.replug( a, words.next() );
   } else if ( first == "count" ) {
      for ( auto& [flow, member] : receivers_ ) member.receiver->forget();
      counted_ = now();
      for ( const std::string& router : bed_.routers() )
         loads_[router] = { loadOf( bed_.agent( router ).pid() ),
                            loadOf( bed_.forwarder( router ) ) };
   } else if ( first == "listen" ) {
      if ( stories_ > 1 )
         std::this_thread::sleep_for(
            std::chrono::duration<double>( ended_ + kLeaving - now() ) );
      listening_ = std::chrono::duration<double>(
                      std::chrono::system_clock::now().time_since_epoch() )
                      .count();
   } else if ( !actOnPackets( first, words.next(), words ) ) {
      throw ScriptError( "not understood: " + statement );
   }
}

// Sockets hold some 80,000 packets.
void Stage::pause( double seconds ) {
   constexpr double kSlice = 2.0;
   for ( ; seconds > 0; seconds -= kSlice ) {
      std::this_thread::sleep_for(
         std::chrono::duration<double>( std::min( seconds, kSlice ) ) );
      for ( auto& [flow, member] : receivers_ ) member.receiver->received();
   }
}

bool Stage::actOnPackets( const std::string& who, const std::string& verb,
                          Words& words ) {
   std::string what = words.next();
   if ( verb == "configures" ) {
      std::string keys;
      while ( !words.atEnd() ) keys += words.next() + ' ';
      bed_.configure( who, what, keys );
      return true;
   }
   if ( verb == "sets" ) {
      Namespace::Inside inside( bed_.node( who ) );
      std::ofstream( "/proc/sys/net/" + what ) << words.next();
      return true;
   }
   if ( verb == "ip" ) {
      std::string arguments = what;
      while ( !words.atEnd() ) arguments += ' ' + words.next();
      bed_.node( who ).ip( arguments );
      return true;
   }
   if ( verb == "routes" ) {
      if ( !words.accept( "by" ) ) throw ScriptError( "by whom?" );
      bed_.route( who, what, words.next() );
      return true;
   }
   const std::string from = words.accept( "from" ) ? words.next() : "";
   const int rate =
      words.accept( "at" ) ? std::stoi( words.next() ) : 1000;  // "1000/s"
   words.expectEnd();
   const auto [named, groups] = manyOf( what );
   for ( AddressFamily family : kFamilies )
      for ( int i = 0; i < groups; ++i ) {
         const Flow flow( who, plus( group( named, family ), i ) );
         const Namespace& host = bed_.node( who );
         if ( verb == "joins" ) {
            const IpGenAddr source =
               from.empty() ? IpGenAddr() : bed_.address( family, from );
            receivers_[flow] = {
               std::make_unique<Receiver>( host, bed_.interface( who ), flow.second,
                                           source ),
               now() };
            for ( const auto& [each, sender] : senders_ )
               if ( each.second == flow.second )
                  receivers_[flow].receiver->beginIs( sender->sent() );
         } else if ( verb == "leaves" ) {
            receivers_.erase( flow );
         } else if ( verb == "sends" ) {
            senders_[flow] = std::make_unique<Sender>( host, bed_.interface( who ),
                                                       flow.second, rate );
         } else if ( verb == "stops" ) {
            senders_.erase( flow );
         } else {
            return false;
         }
      }
   return true;
}

// kill agent of X, kill forwarder of X; kill 200 agents; end X; halt X; start X; end
// recorder of X, start recorder of X, end forwarder of X, start forwarder of X
void Stage::actOnProgram( const std::string& verb, Words& words ) {
   const std::string what = words.next();
   const bool ends = verb == "end", starts = verb == "start";
   if ( ( ends || starts ) && words.accept( "of" ) ) {
      const std::string router = words.next();
      if ( what == "recorder" )
         return ends ? bed_.endRecorder( router ) : bed_.record( router, store_ );
      if ( what == "forwarder" )
         return ends ? bed_.endForwarder( router ) : bed_.startForwarder( router );
      throw ScriptError( "whose " + what + '?' );
   }
   if ( starts ) return bed_.start( what );
   if ( ends ) return bed_.end( what );
   if ( verb == "halt" ) return bed_.halt( what );
   if ( verb == "reboot" ) return bed_.reboot( what );
   if ( words.accept( "agents" ) ) return killAtRandom( std::stoi( what ) );
   if ( !words.accept( "of" ) ) throw ScriptError( "whose " + what + '?' );
   if ( what == "agent" ) return bed_.killAgent( words.next() );
   if ( what == "forwarder" ) return bed_.killForwarder( words.next() );
   throw ScriptError( "not understood: kill " + what );
}

// An agent dies each 0.1 to 0.5 s, also while it starts.
void Stage::killAtRandom( int times ) {
   const char* const given = std::getenv( "PIMSM_SEED" );
   const auto seed = given == nullptr
                        ? std::random_device()()
                        : static_cast<unsigned>( std::stoul( given ) );
   std::cout << "PIMSM_SEED=" << seed << std::endl;
   std::mt19937 random( seed );
   const auto routers = bed_.routers();
   for ( ; times > 0; --times ) {
      bed_.killAgent( routers[random() % routers.size()] );
      std::this_thread::sleep_for(
         std::chrono::milliseconds( 100 + random() % 400 ) );
   }
}

// link X-L down
void Stage::link( Words& words ) {
   const std::string ends = words.next();
   const size_t dash = ends.find( '-' );
   const std::string of = ends.substr( 0, dash );
   bed_.node( of ).ip( "link set " + Bed::interface( of, ends.substr( dash + 1 ) ) +
                       ' ' + words.next() );
}

// These words in order.
std::string Stage::patternOf( const std::vector<std::string>& words,
                              AddressFamily family ) const {
   std::string pattern;
   for ( const std::string& word : words )
      pattern +=
         std::regex_replace( text( word, family ), std::regex( "[(*)]" ), "\\$&" ) +
         "\\b.*";
   return std::regex_replace( pattern, std::regex( "\\)\\\\b" ), ")" );
}

// until H1 hears G
// until [no] [ipv6] F shows|interfaces|metrics WORDS: a line with these in order
// until path S G [to H] tells WORDS, until check tells WORDS
void Stage::until( Words& words ) {
   if ( words.peek() == "path" || words.peek() == "check" )
      return tells( words.next(), words, kTold );
   const bool no = words.accept( "no" ), ipv6 = words.accept( "ipv6" );
   const std::string who = words.next(), verb = words.next();
   if ( verb == "hears" ) return hears( who, words.next() );
   if ( verb == "forwards" ) return forwards( who, words.whole() );
   std::vector<std::string> wanted;
   while ( !words.atEnd() ) wanted.push_back( words.next() );
   for ( AddressFamily family : kFamilies ) {
      if ( ipv6 && family == AddressFamily::ipv4 ) continue;
      const std::string pattern = patternOf( wanted, family );
      const std::regex expression( pattern );
      std::string shown;
      const bool came = eventually( [&] {
         shown = bed_.show( who, { family == AddressFamily::ipv4 ? "-4" : "-6",
                                   verb == "shows" ? "routes" : verb } );
         return std::regex_search( shown, expression ) != no;
      } );
      if ( !came )
         throw ScriptError( fmt::format( "{} {} {}/{}/; got\n{}", who, verb,
                                         no ? "still has " : "never had ", pattern,
                                         shown ) );
   }
}

// What pimsm-fleet says. "path S G*100 to H": of each of so many groups.
void Stage::tells( const std::string& command, Words& words, int seconds ) {
   const bool path = command == "path";
   const std::string source = path ? words.next() : "";
   const std::string name = path ? words.next() : "";
   const std::string to = words.accept( "to" ) ? words.next() : "";
   if ( !words.accept( "tells" ) ) throw ScriptError( command + " tells what?" );
   std::vector<std::string> wanted;
   while ( !words.atEnd() ) wanted.push_back( words.next() );
   const auto [named, groups] = manyOf( name );
   for ( AddressFamily family : kFamilies ) {
      const auto at = [&]( const std::string& node ) {
         return node == "*" ? node : valueToStrep( bed_.address( family, node ) );
      };
      for ( int i = 0; i < groups; ++i ) {
         Program::Arguments asked{ family == AddressFamily::ipv4 ? "-4" : "-6",
                                   command };
         if ( path )
            asked.insert( asked.end(),
                          { "--json-lines", at( source ),
                            valueToStrep( plus( group( named, family ), i ) ) } );
         if ( !to.empty() ) asked.insert( asked.end(), { "--to", at( to ) } );
         expectTold( std::move( asked ), patternOf( wanted, family ), seconds );
      }
   }
}

// Of a path's JSON the last verdict is the whole path's.
void Stage::expectTold( Program::Arguments asked, const std::string& pattern,
                        int seconds ) const {
   asked.insert( asked.begin(), { PIMSM_FLEET, "--store", store_ } );
   const std::regex expression( pattern );
   Mox::Test::Ended said;
   const bool told = eventually(
      [&] {
         said = Mox::Test::runToEnd( asked );
         const size_t verdict = said.out.rfind( "\"verdict\"" );
         return std::regex_search(
            verdict == std::string::npos ? said.out : said.out.substr( verdict ),
            expression );
      },
      std::chrono::seconds( seconds ) );
   if ( !told )
      throw ScriptError( fmt::format( "{} tells no /{}/, but\n{}{}",
                                      fmt::join( asked, " " ), pattern, said.out,
                                      said.err ) );
}

void Stage::hears( const std::string& who, const std::string& name ) {
   const auto [first, groups] = manyOf( name );
   for ( AddressFamily family : kFamilies )
      for ( int i = 0; i < groups; ++i )
         hears( who, plus( group( first, family ), i ) );
   if ( givenStore() == nullptr ) return;
   const IpGenAddr ofIpv4 = group( first, AddressFamily::ipv4 );
   for ( const auto& [flow, sender] : senders_ ) {
      if ( flow.second != ofIpv4 ) continue;
      Words words( flow.first + ' ' + name + " to " + who + " tells fine" );
      tells( "path", words, kTold );
      std::printf( "path: %s gets %s\n", who.c_str(), name.c_str() );
   }
}

void Stage::hears( const std::string& who, const IpGenAddr& of ) {
   const auto found = receivers_.find( { who, of } );
   if ( found == receivers_.end() ) throw ScriptError( "no member: " + who );
   const uint32_t number = senderOf( of ).sent() + 20;
   if ( !eventually( [&] { return found->second.receiver->reached( number ); } ) )
      throw ScriptError(
         fmt::format( "{} does not hear {}", who, valueToStrep( of ) ) );
   if ( explains_ ) expectNoVerdict( who, of );
}

// What the routers of the host's link say of a receiver that hears: the one that
// serves it finds nothing, the others that another one serves it.
void Stage::expectNoVerdict( const std::string& who, const IpGenAddr& of ) {
   std::string said;
   const bool fine = eventually( [&] {
      said.clear();
      for ( const std::string& router : bed_.routers() ) {
         const std::string out = bed_.show(
            router, { "explain", "--interval", "1", valueToStrep( of ),
                      valueToStrep( bed_.address( of.family(), who ) ) } );
         if ( out.find( "nothing stands in the way" ) != std::string::npos )
            return true;
         if ( out.find( "has the network of" ) == std::string::npos )
            said += router + ": " + out;
      }
      return false;
   } );
   if ( !fine ) throw ScriptError( who + " hears, and is told why not:\n" + said );
   std::printf( "explained: %s gets %s\n", who.c_str(),
                valueToStrep( of ).c_str() );
}

void Stage::forwards( const std::string& who, size_t entries ) {
   for ( const char* family : { "-4", "-6" } ) {
      if ( !eventually( [&] {
              const std::string all =
                 bed_.node( who ).ip( std::string( family ) + " mroute show" );
              return size_t( std::count( all.begin(), all.end(), '\n' ) ) >=
                     entries;
           } ) )
         throw ScriptError( who + " does not have so many entries" );
   }
}

// agents grown, agents busy, forwarders grown, forwarders busy: of each router
std::map<std::string, double> Stage::loads( const std::string& whose,
                                            const std::string& what ) {
   std::map<std::string, double> out;
   for ( const std::string& router : bed_.routers() ) {
      const bool agents = whose == "agents";
      const auto& [agent, forwarder] = loads_.at( router );
      const Load& before = agents ? agent : forwarder;
      const Load is =
         loadOf( agents ? bed_.agent( router ).pid() : bed_.forwarder( router ) );
      out[router] = what == "grown"
                       ? is.memory - before.memory
                       : ( is.time - before.time ) / ( now() - counted_ );
   }
   return out;
}

std::map<std::string, double> Stage::figures( Words& words ) {
   const std::string who = words.next();
   if ( who == "passed" ) return { { "all", ( now() - counted_ ) * 1000 } };
   if ( who == "agents" || who == "forwarders" ) return loads( who, words.next() );
   if ( who == "wire" ) {
      const std::string figure = words.next();
      if ( !decoder_ ) return {};
      return { { "all", overheard( *decoder_, listening_, figure ) } };
   }
   const std::string name = words.next();
   const std::string what = words.next();
   std::map<std::string, double> out;
   if ( what == "silent" ) {
      const auto last =
         lastHeard( bed_.node( who ), bed_.interface( who ),
                    { group( name, kFamilies[0] ), group( name, kFamilies[1] ) } );
      for ( const auto& [group, time] : last )
         out[nameOf( group.family() )] = ( time - acted_ ) * 1000;
      return out;
   }
   for ( AddressFamily family : kFamilies )
      out[nameOf( family )] = figure( who, group( name, family ), what );
   return out;
}

double Stage::figure( const std::string& host, const IpGenAddr& group,
                      const std::string& what ) {
   const auto found = receivers_.find( { host, group } );
   if ( found == receivers_.end() ) throw ScriptError( "no member: " + host );
   Member& member = found->second;
   Sender& sender = senderOf( group );
   const uint32_t number = sender.sent() + 20;
   if ( !eventually( [&] { return member.receiver->reached( number ); } ) )
      throw ScriptError( host + " hears nothing of " + valueToStrep( group ) );
   if ( what == "lost" ) return member.receiver->faults().lost;
   if ( what == "doubled" ) return member.receiver->faults().doubled;
   if ( what == "missed" ) return member.receiver->faults().first;
   if ( what == "gap" ) return member.receiver->gap() * 1000;
   if ( what == "first" )
      return std::max( 0.0, member.receiver->first() -
                               std::max( member.since, sender.since() ) ) *
             1000;
   throw ScriptError( "no figure: " + what );
}

}
