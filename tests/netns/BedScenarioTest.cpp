// Runs the `.scenario` files of this folder, each on a bed of its own. README.md
// explains the language.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "tests/netns/Stage.h"

namespace Netns {
namespace {

using Scenario::Line;
using Scenario::Script;
using Scenario::Story;
using Scenario::Words;

// One file and its bed, which its first test makes.
struct Play {
   explicit Play( const std::string& path )
      : script( Scenario::readScript( path ) ) {}
   Script script;
   std::unique_ptr<Stage> stage;
};

class BedScenario : public testing::Test {
 public:
   BedScenario( Play& play, const Story& story ) : play_( play ), story_( story ) {}
   static void TearDownTestSuite() {
      for ( const auto& each : plays() ) each->stage.reset();
   }
   static std::vector<std::unique_ptr<Play>>& plays() {
      static std::vector<std::unique_ptr<Play>> all;
      return all;
   }

   void SetUp() override {
#ifdef PIMSM_SANITIZED
      GTEST_SKIP() << "real time: not with programs that the sanitizers slow down";
#endif
      static const std::string kWhyNot = notPermitted();
      if ( !kWhyNot.empty() ) GTEST_SKIP() << kWhyNot;
      isLong_ = story_.title.rfind( "long: ", 0 ) == 0;
      if ( isLong_ && !inLongRun_ ) GTEST_SKIP() << "in ./test --long";
      if ( !play_.stage ) play_.stage = std::make_unique<Stage>( play_.script );
   }
   void TestBody() override {
      const int times = inLongRun_ && !isLong_ ? 20 : 1;
      for ( int i = 0; i < times && !HasFailure(); ++i ) {
         play_.stage->begin( inLongRun_ && i == 0 );
         for ( const std::string& each : story_.preamble ) play_.stage->act( each );
         for ( const Line& line : story_.lines ) {
            if ( !run( line ) ) break;
         }
         if ( HasFailure() ) std::cout << play_.stage->bed().state();
         play_.stage->end();
      }
      if ( inLongRun_ ) print();
   }

 private:
   // Returns false when the scenario cannot go on.
   bool run( const Line& line ) {
      try {
         for ( const std::string& each : line.statements ) play_.stage->act( each );
         for ( const std::string& each : line.expected ) expect( line, each );
      } catch ( const std::exception& error ) {
         ADD_FAILURE() << where( line ) << error.what();
         return false;
      }
      return true;
   }
   // A table of both families' figures.
   void print() {
      std::cout << "| " << story_.title << " | median | worst |\n|---|---|---|\n";
      for ( auto& [figure, got] : figures_ ) {
         std::sort( got.begin(), got.end() );
         std::cout << fmt::format( "| {} | {:.3g} | {:.3g} |\n", figure.second,
                                   got[got.size() / 2], got.back() );
      }
   }
   std::string where( const Line& line ) const {
      return fmt::format( "{}:{}: {}\n", play_.script.path, line.number,
                          story_.title );
   }

   // H1 G lost 0; H1 G gap below 300 ms; wire prunes 0; wire faultless
   void expect( const Line& line, const std::string& text ) {
      if ( text == "wire faultless" ) {
         EXPECT_EQ( play_.stage->faulty(), "" ) << where( line );
         return;
      }
      Words words( text );
      const auto figures = play_.stage->figures( words );
      const bool below = words.accept( "below" ), above = words.accept( "above" );
      const double wanted = words.number();
      for ( const auto& [of, got] : figures ) {
         figures_[{ line.number, text }].push_back( got );
         if ( below ? got >= wanted : above ? got <= wanted : got != wanted )
            ADD_FAILURE() << where( line ) << "wanted " << text << "\ngot    " << of
                          << ' ' << got;
      }
   }

   Play& play_;
   const Story& story_;
   const bool inLongRun_ = std::getenv( "PIMSM_LONG" ) != nullptr;
   bool isLong_ = false;
   // By line and expectation.
   std::map<std::pair<int, std::string>, std::vector<double>> figures_;
};

void addFile( const std::filesystem::path& path ) {
   auto& plays = BedScenario::plays();
   plays.push_back( std::make_unique<Play>( path.string() ) );
   Play& play = *plays.back();
   for ( const Story& story : play.script.stories ) {
      testing::RegisterTest(
         ( "Bed" + Scenario::testName( path.stem() ) ).c_str(),
         Scenario::testName( story.title ).c_str(), nullptr, nullptr, path.c_str(),
         1, [&play, &story] { return new BedScenario( play, story ); } );
   }
}

const bool kAdded = [] {
   std::vector<std::filesystem::path> files;
   for ( const auto& entry :
         std::filesystem::directory_iterator( PIMSM_SOURCE_DIR "/tests/netns" ) ) {
      if ( entry.path().extension() == ".scenario" )
         files.push_back( entry.path() );
   }
   std::sort( files.begin(), files.end() );
   for ( const auto& each : files ) addFile( each );
   return true;
}();

}
}
