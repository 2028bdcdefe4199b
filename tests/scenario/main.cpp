// The scenarios as tests: a suite for each file, a test for each of its scenarios
// and of its blocks of cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "tests/scenario/Runner.h"

namespace Scenario {
namespace {

class StoriesTest : public testing::Test {
 public:
   StoriesTest( const Script& script, std::vector<const Story*> stories )
      : script_( script ), stories_( std::move( stories ) ) {}
   void TestBody() override {
      for ( const Story* story : stories_ ) {
         const Outcome outcome = run( script_, *story );
         for ( const std::string& failure : outcome.failures )
            ADD_FAILURE() << failure;
         if ( !outcome.missing.empty() )
            GTEST_SKIP() << "no such capture here: " << outcome.missing
                         << "; PIMSM_CAPTURES names a directory of them";
      }
   }

 private:
   const Script& script_;
   std::vector<const Story*> stories_;
};

void addTests( const std::string& path ) {
   // Lives as long as the process.
   static std::vector<std::unique_ptr<Script>> scripts;
   scripts.push_back( std::make_unique<Script>( readScript( path ) ) );
   const Script& script = *scripts.back();
   std::vector<std::string> titles;
   std::map<std::string, std::vector<const Story*>> stories;
   for ( const Story& story : script.stories ) {
      if ( stories[story.title].empty() ) titles.push_back( story.title );
      stories[story.title].push_back( &story );
   }
   const std::string suite =
      testName( std::filesystem::path( path ).stem().string() );
   for ( const std::string& title : titles ) {
      testing::RegisterTest(
         suite.c_str(), testName( title ).c_str(), nullptr, nullptr, path.c_str(),
         1,
         [&script, of = stories[title]] { return new StoriesTest( script, of ); } );
   }
}

std::vector<std::string> scenarioFiles( const std::string& directory ) {
   std::vector<std::string> out;
   for ( const auto& entry :
         std::filesystem::recursive_directory_iterator( directory ) ) {
      // Those of real networks are run there.
      if ( entry.path().extension() == ".scenario" &&
           entry.path().parent_path().filename() != "netns" )
         out.push_back( entry.path().string() );
   }
   std::sort( out.begin(), out.end() );
   return out;
}

}
}

int main( int argc, char** argv ) {
   testing::InitGoogleTest( &argc, argv );
   std::vector<std::string> files( argv + 1, argv + argc );
   if ( files.empty() ) files = Scenario::scenarioFiles( PIMSM_TESTS_DIR );
   try {
      for ( const std::string& file : files ) Scenario::addTests( file );
   } catch ( const Scenario::ScriptError& error ) {
      fprintf( stderr, "%s\n", error.what() );
      return 2;
   }
   return RUN_ALL_TESTS();
}
