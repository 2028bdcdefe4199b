#include "model/Derivation.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>

#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

const char* const kSource = "192.0.2.1";
const char* const kGroup = "233.252.0.1";

// A random (S,G) route with its (*,G) route over three interfaces; the same seed
// builds the same state again.
class RandomVrf {
 public:
   explicit RandomVrf( unsigned seed ) : random_( seed ) {
      for ( const char* name : { "eth0", "eth1", "eth2" } ) {
         if ( oneOf( 4 ) != 0 )
            vrf_.pimIntf( name, oneOf( 4 ) ? "192.0.2.5" : "0.0.0.0", flip() );
      }
      RouteBuilder sg = vrf_.sg( kSource, kGroup );
      fill( sg );
      sg.spTree( flip() ).katExpired( flip() );
      if ( flip() ) sg.rpfFrr( rpf() );
      if ( oneOf( 5 ) == 0 ) return;
      RouteBuilder wc = vrf_.wc( kGroup );
      fill( wc );
   }

   Status& status() { return *vrf_; }
   Routing::Pim::Status* pim() { return vrf_.pim(); }
   Route& sg() { return *vrf_->route( sgKey( kSource, kGroup ) ); }
   Route* wc() { return vrf_->route( wcKey( kGroup ) ); }

 private:
   unsigned oneOf( unsigned n ) { return random_() % n; }
   bool flip() { return oneOf( 2 ) != 0; }
   Rpf rpf() {
      static const char* const kIntfs[] = { "eth0", "eth1", "eth9", "Register0" };
      return rpfBy( kIntfs[oneOf( 4 )], flip() ? "192.0.2.254" : "192.0.2.253" );
   }
   void fill( RouteBuilder& route ) {
      route.upJoined( flip() );
      if ( oneOf( 4 ) ) route.rpf( rpf() );
      if ( oneOf( 8 ) == 0 ) route->umhDel();
      for ( const char* name : { "eth0", "eth1", "eth2" } ) {
         if ( oneOf( 4 ) == 0 ) continue;
         static const char* const kWinners[] = {
            "[R] 0.0.0.0 [2147483647/4294967295]", "[S] 192.0.2.5 [110/20]",
            "[S] 192.0.2.9 [1/1]", "[R] 192.0.2.9 [200/9]" };
         route.intf( name )
            .joinState( Mox::enumInstance<Intf::JoinState>( oneOf( 3 ) ) )
            .rptState( Mox::enumInstance<Intf::RptState>( oneOf( 5 ) ) )
            .include( flip() )
            .exclude( flip() )
            .lostAssert( kWinners[oneOf( 4 )] );
      }
   }

   std::mt19937 random_;
   Vrf vrf_;
};

// Makes an input's change in the model itself.
void really( RandomVrf& vrf, const MacroInput& input, const Mox::String& value ) {
   if ( input.field == "addr" || input.field == "iAmDr" ) {
      vrf.pim()->intf( input.intfId )->attributeTextIs( input.field, value );
      return;
   }
   if ( input.field == "pimIntf" ) {
      vrf.pim()->intfDel( input.intfId );
      return;
   }
   Route& route = *vrf.status().route( input.route );
   std::map<Mox::String, std::function<void()>> ways{
      { "wc", [&] { vrf.status().routeDel( vrf.wc()->key() ); } },
      { "wcIntf", [&] { vrf.wc()->routeIntfDel( input.intfId ); } },
      { "umh", [&] { route.umhDel(); } },
      { "umhFrr", [&] { route.umhFrrDel(); } },
      { "rpf", [&] { route.umhIs()->attributeTextIs( "rpf", value ); } },
      { "rpfFrr", [&] { route.umhFrrIs()->attributeTextIs( "rpf", value ); } },
      { "assertWinnerMetric", [&] {
          route.routeIntf( input.intfId )
             ->assertInfoIs( { iAmAssertLoser, assertMetric( value ) } );
       } } };
   if ( auto way = ways.find( input.field ); way != ways.end() )
      return way->second();
   Mox::Entity* subject = &route;
   if ( !input.intfId.empty() ) subject = route.routeIntf( input.intfId );
   subject->attributeTextIs( input.field, value );
}

struct Question {
   Mox::StringView macro;
   bool ofIntf;
   MacroArguments arguments;

   Derivation derivation( RandomVrf& vrf,
                          const MacroInput* replaced = nullptr ) const {
      return ofIntf ? derive( intf( vrf ), macro, arguments, replaced )
                    : derive( vrf.sg(), macro, arguments, replaced );
   }
   std::vector<MacroFlip> flips( RandomVrf& vrf ) const {
      return ofIntf ? flipsOf( intf( vrf ), macro, arguments )
                    : flipsOf( vrf.sg(), macro, arguments );
   }
   static Intf& intf( RandomVrf& vrf ) {
      return *vrf.sg().routeIntfIs( intfId( "eth1" ) );
   }
};

std::vector<Question> questions( const IntfCollection& failover ) {
   MacroArguments arguments{ assertMetric( "[R] 192.0.2.8 [110/20]" ), &failover };
   std::vector<Question> all;
   for ( Mox::StringView macro : intfMacroNames() )
      all.push_back( { macro, true, arguments } );
   for ( Mox::StringView macro : routeMacroNames() )
      all.push_back( { macro, false, arguments } );
   return all;
}

// Checks that each rule's first deciding step is marked, and that its value follows
// from it.
void expectSound( const Derivation& derivation ) {
   unsigned deciding = 0;
   bool decided = false;
   for ( const MacroStep& step : derivation.steps ) {
      deciding += step.decides;
      EXPECT_EQ( step.decides, !decided && step.holds == step.wanted )
         << derivation.macro << ": " << step.condition;
      decided |= step.decides;
      for ( const Derivation& asked : step.from ) expectSound( asked );
   }
   EXPECT_EQ( deciding, 1u ) << derivation.macro;
}

class RandomDerivations : public testing::Test {
 protected:
   void SetUp() override {
      failover_ = intfCollectionFactory();
      failover_->intfIs( intfId( "eth1" ) );
      const char* fixed = std::getenv( "PIMSM_SEED" );
      first_ = fixed != nullptr ? static_cast<unsigned>( std::atoi( fixed ) )
                                : std::random_device()();
      RecordProperty( "seed", Mox::String( std::to_string( first_ ) ) );
      std::printf( "seed %u\n", first_ );
   }

   Mox::Ptr<IntfCollection> failover_;
   unsigned first_ = 0;
};

// Reflection evaluates the plain macros.
TEST_F( RandomDerivations, AnswerAsTheMacrosDo ) {
   for ( unsigned seed = first_; seed < first_ + 200; ++seed ) {
      RandomVrf vrf( seed );
      for ( const Question& question : questions( *failover_ ) ) {
         Derivation derivation = question.derivation( vrf );
         expectSound( derivation );
         const Mox::Entity& subject =
            question.ofIntf ? static_cast<Mox::Entity&>( question.intf( vrf ) )
                            : vrf.sg();
         auto rows = subject.typeInfo().attributes;
         auto row = std::find_if(
            rows.begin(), rows.end(),
            [&]( const auto& each ) { return each.name == question.macro; } );
         if ( row == rows.end() ) continue;
         EXPECT_EQ( derivation.value, row->get( subject ) )
            << question.macro << ", seed " << seed;
      }
   }
}

// A flip that is reported really reverses the answer when made in the model. Any
// other replaced input gives the changed model's answer.
TEST_F( RandomDerivations, ForetellWhatAChangeWouldGive ) {
   unsigned checked = 0;
   for ( unsigned seed = first_; seed < first_ + 60; ++seed ) {
      for ( const Question& question : questions( *failover_ ) ) {
         RandomVrf vrf( seed );
         Mox::String present = question.derivation( vrf ).value;
         for ( const MacroFlip& flip : question.flips( vrf ) ) {
            EXPECT_NE( flip.answer, present );
            MacroInput replaced = flip.input;
            replaced.value = flip.value;
            EXPECT_EQ( question.derivation( vrf, &replaced ).value, flip.answer );
            RandomVrf changed( seed );
            Question::intf( changed );
            really( changed, flip.input, flip.value );
            // With the sibling really removed, the (*,G) route's own lists lose it
            // as well.
            if ( flip.input.field == "wcIntf" ) continue;
            EXPECT_EQ( question.derivation( changed ).value, flip.answer )
               << question.macro << ", seed " << seed << ": " << flip.input.field
               << " " << flip.value;
            ++checked;
         }
      }
   }
   EXPECT_GT( checked, 1000u );
}

TEST( Derivation, TellsTermsFieldsAndWhatWouldFlipIt ) {
   Vrf vrf;
   vrf.pimIntf( "eth1", "192.0.2.5" );
   auto sg = vrf.sg( kSource, kGroup ).rpf( "eth0" );
   auto intf = sg.intf( "eth1" ).joined().lostAssert( "[S] 192.0.2.9 [1/1]" );

   Derivation why = derive( *intf, "immediateOlistSg" );
   EXPECT_EQ( why.value, "false" );
   EXPECT_EQ( why.route, sg->key() );
   EXPECT_EQ( why.intfId, intfId( "eth1" ) );
   ASSERT_EQ( why.steps.size(), 3u );
   EXPECT_EQ( why.steps[0].condition, "lostAssertSg" );
   EXPECT_TRUE( why.steps[0].decides );
   // Evaluated though an earlier step decided.
   EXPECT_EQ( why.steps[1].condition, "joinsSg" );
   EXPECT_TRUE( why.steps[1].holds );
   ASSERT_EQ( why.steps[1].from.size(), 1u );
   const Derivation& joins = why.steps[1].from[0].steps[0].from[0];
   EXPECT_EQ( joins.inputs,
              ( std::vector<MacroInput>{
                 { sg->key(), intfId( "eth1" ), "joinState", "joined" } } ) );

   std::vector<Mox::String> texts;
   for ( const MacroFlip& flip : flipsOf( *intf, "immediateOlistSg" ) )
      texts.push_back( flip.input.field + " " + flip.value + ": " + flip.answer );
   EXPECT_EQ( texts,
              ( std::vector<Mox::String>{
                 "assertWinnerMetric [R] 0.0.0.0 [2147483647/4294967295]: true",
                 "assertWinnerMetric [S] 192.0.2.5 [0/0]: true" } ) );
}

TEST( Derivation, RefusesWhatCannotBeAsked ) {
   Vrf vrf;
   auto intf = vrf.wc( kGroup ).intf( "eth1" );
   EXPECT_THROW( derive( *intf, "joinDesired" ), Mox::NameError );
   EXPECT_THROW( derive( *intf->parentRoute(), "joinsWc" ), Mox::NameError );
   for ( const char* macro :
         { "couldAssertSg", "assertTrackingDesiredSg", "myAssertMetricSg",
           "isAcceptableAssertSg", "isInferiorAssertSg" } )
      EXPECT_THROW( derive( *intf, macro ), Mox::RangeError ) << macro;
   auto replaced = [&]( const char* field, const char* value ) {
      MacroInput input{ wcKey( kGroup ), intfId( "eth1" ), field, value };
      return derive( *intf, "immediateOlistWc", {}, &input ).value;
   };
   EXPECT_EQ( replaced( "joinState", "joined" ), "true" );
   EXPECT_EQ( replaced( "rptState", "rptPruned" ), "false" );  // not read
   EXPECT_THROW( replaced( "joinState", "sleeping" ), Mox::RangeError );
   EXPECT_THROW( replaced( "assertWinnerMetric", "[S] 192.0.2.9" ),
                 Mox::ParseError );
}

// A record without a route, as one that a caller keeps.
TEST( Derivation, NeedsNoNeighbours ) {
   Mox::Ptr<Intf> alone( new Intf( intfId( "eth1" ), nullptr ) );
   for ( Mox::StringView macro : intfMacroNames() )
      EXPECT_NO_THROW( derive( *alone, macro ) ) << macro;
   Mox::Ptr<Route> free( new Route( wcKey( kGroup ), nullptr ) );
   for ( Mox::StringView macro : routeMacroNames() )
      EXPECT_NO_THROW( derive( *free, macro ) ) << macro;
}

}
}
