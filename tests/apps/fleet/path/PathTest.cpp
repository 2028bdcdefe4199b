// Runs the .fleet files: fleets, what is asked of them, and faults one at a time.
//
//    fleet NAME [of OTHER]     its lines follow, each indented; of another one: added
//    ask S G [to R] [from X]   for the lines below it
//    fine SENTENCE             of the fleet as it is
//    fault EDIT [& EDIT] ==> VERDICT: REASON
//                              an edit is "+ LINE", "- LINE" by how the line begins, or
//                              "LINE: A => B" in the line that begins so
//    check EDIT ==> VERDICT: REASON [of 2 routes]    the same, of all links and routes
//    text, json                the answer follows, indented; before them, an edit
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>

#include "apps/fleet/path/Check.h"
#include "apps/fleet/path/Path.h"
#include "tests/apps/fleet/path/Fixture.h"

namespace Fleet::Test {
namespace {

using Lines = std::vector<std::string>;

std::string trim( const std::string& text ) {
   const size_t from = text.find_first_not_of( ' ' );
   if ( from == std::string::npos ) return "";
   return text.substr( from, text.find_last_not_of( ' ' ) - from + 1 );
}

// The parts of a text between the separators.
Lines split( const std::string& text, const std::string& at ) {
   Lines parts;
   size_t from = 0;
   for ( size_t end; ( end = text.find( at, from ) ) != std::string::npos;
         from = end + at.size() )
      parts.push_back( trim( text.substr( from, end - from ) ) );
   parts.push_back( trim( text.substr( from ) ) );
   return parts;
}

size_t lineOf( const Lines& lines, const std::string& beginning ) {
   for ( size_t i = 0; i < lines.size(); ++i ) {
      const std::string line = lines[i] + ' ';
      const char next = line[std::min( beginning.size(), line.size() - 1 )];
      if ( line.rfind( beginning, 0 ) == 0 && ( next == ' ' || next == ';' ) )
         return i;
   }
   throw std::runtime_error( "no line begins with " + beginning );
}

void edit( Lines& lines, const std::string& text ) {
   if ( text.empty() ) return;
   if ( text[0] == '+' ) return lines.push_back( trim( text.substr( 1 ) ) );
   if ( text[0] == '-' ) {
      lines.erase( lines.begin() + static_cast<std::ptrdiff_t>(
                                      lineOf( lines, trim( text.substr( 1 ) ) ) ) );
      return;
   }
   const size_t colon = text.find( ": " );
   const Lines change = split( text.substr( colon + 2 ), "=>" );
   std::string& line = lines[lineOf( lines, text.substr( 0, colon ) )];
   const size_t at = line.find( change.at( 0 ) );
   if ( at == std::string::npos )
      throw std::runtime_error( "not in its line: " + change[0] );
   line.replace( at, change[0].size(), change.at( 1 ) );
}

struct Asked {
   PathQuestion question;
   Lines lines;

   explicit Asked( const Lines& fleet, const std::string& text ) : lines( fleet ) {
      std::istringstream in( text );
      std::string word, value;
      in >> word >> value;
      question.stream.group = IpGenAddr( value );
      question.stream.source =
         word == "*" ? IpGenAddr::unspecified( question.stream.group.family() )
                     : IpGenAddr( word );
      while ( in >> word >> value ) {
         if ( word == "to" ) question.receiver = IpGenAddr( value );
         if ( word == "from" ) question.from = value;
      }
      question.scope = { "default", question.stream.group.family() };
      question.now = now;
   }
   void change( const std::string& edits ) {
      for ( const std::string& each : split( edits, " & " ) ) edit( lines, each );
   }
   PathAnswer path() const {
      Fixture fixture( lines, question.stream );
      return findPath( fixture.reader(), question );
   }
   std::vector<Finding> check() const {
      Fixture fixture( lines, question.stream );
      return checkFleet( fixture.reader(), { question.scope, {}, now, {} } );
   }
};

std::string told( const Judgement& judgement ) {
   return judgement ? std::string( verdictText( judgement.verdict ) ) + ": " +
                         judgement.reason
                    : "fine";
}

std::string told( const std::vector<Finding>& findings ) {
   std::string all;
   for ( const Finding& each : findings )
      all +=
         ( all.empty() ? "" : " | " ) + told( each.judgement ) +
         ( each.streams > 1 ? " of " + std::to_string( each.streams ) + " routes"
                            : "" );
   return all.empty() ? "fine" : all;
}

class Runner {
 public:
   void run( const std::string& file ) {
      std::ifstream in( file );
      ASSERT_TRUE( in ) << file;
      Lines all;
      for ( std::string line; std::getline( in, line ); ) all.push_back( line );
      for ( size_t i = 0; i < all.size(); ++i ) {
         if ( all[i].empty() || all[i][0] == '#' ) continue;
         SCOPED_TRACE( "line " + std::to_string( i + 1 ) + ": " + all[i] );
         Lines block;
         size_t next = i + 1;
         for ( ; next < all.size() && all[next].rfind( "  ", 0 ) == 0; ++next )
            block.push_back( all[next].substr( 2 ) );
         statement( all[i], block );
         i = next - 1;
      }
   }

 private:
   void statement( const std::string& line, const Lines& block ) {
      std::istringstream in( line );
      std::string word, rest;
      in >> word;
      std::getline( in >> std::ws, rest );
      if ( word == "fleet" ) return fleet( rest, block );
      if ( word == "ask" ) {
         ask_ = rest;
         // Nothing is wrong before something is broken, and no check says so.
         EXPECT_EQ( "fine", told( Asked( lines_, ask_ ).path().judgement ) );
         EXPECT_EQ( "fine", told( Asked( lines_, ask_ ).check() ) );
         return;
      }
      Asked asked( lines_, ask_ );
      const Lines parts = split( rest, "==>" );
      if ( word == "fine" ) {
         EXPECT_EQ( rest, asked.path().verdict );
         return;
      }
      asked.change( parts[0] );
      if ( word == "fault" ) {
         EXPECT_EQ( parts.at( 1 ), told( asked.path().judgement ) );
      } else if ( word == "check" ) {
         EXPECT_EQ( parts.at( 1 ), told( asked.check() ) );
      } else if ( word == "text" || word == "json" ) {
         std::string wanted;
         for ( const std::string& each : block ) wanted += each + '\n';
         EXPECT_EQ( wanted, word == "text"
                               ? pathText( asked.path() )
                               : pathJson( asked.path() ).dump() + '\n' );
      } else {
         FAIL() << "not understood";
      }
   }

   void fleet( const std::string& rest, const Lines& block ) {
      const Lines names = split( rest, " of " );
      lines_ = names.size() > 1 ? fleets_.at( names[1] ) : Lines();
      for ( const std::string& each : block ) lines_.push_back( trim( each ) );
      fleets_[names[0]] = lines_;
   }

   std::map<std::string, Lines> fleets_;
   Lines lines_;
   std::string ask_;
};

TEST( Path, Fleets ) {
   Runner().run( PIMSM_FLEETS "/path.fleet" );
}

const Lines kPair{ "link /24 r1.eth0 198.51.100.1",
                   "link /24 r1.eth1 10.0.1.1 r2.eth0 10.0.1.2",
                   "link /24 r2.eth5 203.0.113.2",
                   "rp 10.9.9.9 r2",
                   "r1 sg in eth0 attached; eth1 join",
                   "r1 stopped",
                   "r1 samples 9 9",
                   "r2 sg in eth0 via 10.0.1.1; eth5 member",
                   "r2 rpt in eth0; eth5",
                   "r2 wc; eth5 member",
                   "r2 samples 9 9" };
constexpr const char* kAsk = "198.51.100.7 239.1.2.3 to 203.0.113.9";

// Values of two routers are of slightly different times.
TEST( Path, ReadsWhatFailsOnceMore ) {
   Asked asked( kPair, kAsk );
   asked.change( "r1 sg: join => " );
   Fixture fixture( asked.lines, asked.question.stream );
   const std::string right =
      Fixture( kPair, asked.question.stream )
         .values()["r1"][keyText(
            { Key::route, asked.question.scope, asked.question.stream, 0 } )];
   int pauses = 0;
   CheckQuestion check{ asked.question.scope, {}, now, [&] { ++pauses; } };
   EXPECT_EQ( 1u, checkFleet( fixture.reader(), check ).size() );
   asked.question.pause = check.pause;
   EXPECT_TRUE( findPath( fixture.reader(), asked.question ).broken );
   EXPECT_EQ( 2, pauses );
   const auto mend = [&]( const std::string& value ) {
      fixture.put(
         "r1",
         keyText( { Key::route, asked.question.scope, asked.question.stream, 0 } ),
         value );
   };
   const std::string wrong = fixture.values()["r1"][keyText(
      { Key::route, asked.question.scope, asked.question.stream, 0 } )];
   check.pause = asked.question.pause = [&] { mend( right ); };
   EXPECT_FALSE( findPath( fixture.reader(), asked.question ).broken );
   mend( wrong );
   EXPECT_TRUE( checkFleet( fixture.reader(), check ).empty() );
}

// Each member of each value takes another type in turn, or the text is cut or bent.
TEST( Path, SurvivesDamagedValues ) {
   Asked asked( kPair, kAsk );
   Fixture fixture( kPair, asked.question.stream );
   PathQuestion tree = asked.question;
   tree.receiver.reset();
   const auto ask = [&] {
      for ( const PathQuestion* each : { &asked.question, &tree } ) {
         const PathAnswer answer = findPath( fixture.reader(), *each );
         EXPECT_FALSE( pathText( answer ).empty() );
         EXPECT_FALSE( pathJson( answer ).dump().empty() );
      }
      const auto findings =
         checkFleet( fixture.reader(), { asked.question.scope, {}, now, {} } );
      EXPECT_FALSE( checkText( findings ).empty() );
      EXPECT_FALSE( checkJson( findings ).dump().empty() );
   };
   const nlohmann::json others[] = { nullptr,
                                     true,
                                     -1,
                                     1e300,
                                     "\x1b[2J",
                                     nlohmann::json::array( { 1 } ),
                                     nlohmann::json::object( { { "a", 1 } } ) };
   std::mt19937 random( 7 );
   for ( auto& [router, values] : fixture.values() ) {
      for ( const auto& [key, value] : values ) {
         size_t turn = 0;
         const auto flat = nlohmann::json::parse( value ).flatten();
         for ( const auto& [place, leaf] : flat.items() ) {
            auto bent = nlohmann::json::parse( value );
            bent[nlohmann::json::json_pointer( place )] =
               others[turn++ % std::size( others )];
            fixture.put( router, key, bent.dump() );
            ask();
         }
         std::string bytes = value;
         for ( int i = 0; i < 8; ++i ) {
            bytes[random() % bytes.size()] = static_cast<char>( random() );
            fixture.put( router, key, bytes );
            ask();
         }
         for ( const std::string& text :
               { std::string(), value.substr( 0, value.size() / 2 ),
                 std::string( 100'000, '[' ), std::string( 1'000'000, ' ' ) } ) {
            fixture.put( router, key, text );
            ask();
         }
         fixture.put( router, key, value );
      }
   }
   EXPECT_FALSE( findPath( fixture.reader(), asked.question ).broken );
}

}
}
