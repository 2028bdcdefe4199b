#include "model/Derivation.h"

#include <gtest/gtest.h>

#include "tests/model/macros/Model.h"
#include "tests/support/Seed.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

const char* const kSource = "192.0.2.1";
const char* const kGroup = "233.252.0.1";

// Makes an input's change in the model itself.
void really( Model& model, const MacroInput& input, const Mox::String& value ) {
   Mox::Entity* subject = nullptr;
   if ( input.field == "addr" || input.field == "iAmDr" ) {
      subject = model.pim->intf( input.intfId );
   } else if ( input.field == "pimIntf" ) {
      model.pim->intfDel( input.intfId );
   } else if ( input.field == "wc" ) {
      model.vrf->routeDel( wcKey( kGroup ) );
   } else {
      Route& route = *model.vrf->route( input.route );
      if ( input.field == "umh" ) {
         route.umhDel();
      } else if ( input.field == "umhFrr" ) {
         route.umhFrrDel();
      } else if ( input.field == "rpf" || input.field == "rpfFrr" ) {
         ( input.field == "rpf" ? route.umhIs() : route.umhFrrIs() )
            ->rpfIs( Mox::stringToValue<Rpf>( value ) );
      } else if ( input.field == "assertWinnerMetric" ) {
         route.routeIntf( input.intfId )
            ->assertInfoIs( { iAmAssertLoser, assertMetric( value ) } );
      } else if ( input.intfId.empty() ) {
         subject = &route;
      } else {
         subject = route.routeIntf( input.intfId );
      }
   }
   if ( subject != nullptr ) subject->attributeTextIs( input.field, value );
}

struct Question {
   Mox::StringView macro;
   bool ofIntf;

   Derivation derivation( const Model& model,
                          const MacroInput* replaced = nullptr ) const {
      const MacroArguments arguments{ model.received, model.failover.get() };
      return ofIntf ? derive( *model.sgIntf(), macro, arguments, replaced )
                    : derive( *model.sg, macro, arguments, replaced );
   }
   std::vector<MacroFlip> flips( const Model& model ) const {
      const MacroArguments arguments{ model.received, model.failover.get() };
      return ofIntf ? flipsOf( *model.sgIntf(), macro, arguments )
                    : flipsOf( *model.sg, macro, arguments );
   }
};

std::vector<Question> questions() {
   std::vector<Question> all;
   for ( Mox::StringView macro : intfMacroNames() )
      all.push_back( { macro, true } );
   for ( Mox::StringView macro : routeMacroNames() )
      all.push_back( { macro, false } );
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

// Reflection evaluates the plain macros. A flip that is reported really reverses the answer when
// made in the model. Any other replaced input gives the changed model's answer.
TEST( Derivation, AnswersAsTheMacrosDoAndForetellsWhatAChangeWouldGive ) {
   const unsigned seed = Mox::Test::seedOf();
   std::mt19937 random( seed );
   int checked = 0;
   for ( int i = 0; i < Mox::Test::stepsOf( 200 ) && !HasFailure(); ++i ) {
      const World world = anyWorld( random );
      const Model model( world );
      for ( const Question& question : questions() ) {
         SCOPED_TRACE( testing::Message()
                       << question.macro << ", seed " << seed << ", world " << i );
         const Derivation present = question.derivation( model );
         expectSound( present );
         const Mox::Entity& subject =
            question.ofIntf ? static_cast<Mox::Entity&>( *model.sgIntf() )
                            : *model.sg;
         const Mox::TypeInfo& type = subject.typeInfo();
         for ( const auto& rows : { type.attributes, type.unlisted } ) {
            for ( const auto& row : rows ) {
               if ( row.name != question.macro ) continue;
               EXPECT_EQ( present.value, row.get( subject ) );
            }
         }
         if ( i % 4 != 0 ) continue;
         for ( const MacroFlip& flip : question.flips( model ) ) {
            EXPECT_NE( flip.answer, present.value );
            MacroInput replaced = flip.input;
            replaced.value = flip.value;
            EXPECT_EQ( question.derivation( model, &replaced ).value, flip.answer );
            // With the sibling really removed, the (*,G) route's own lists lose it as
            // well.
            if ( flip.input.field == "wcIntf" ) continue;
            Model changed( world );
            really( changed, flip.input, flip.value );
            EXPECT_EQ( question.derivation( changed ).value, flip.answer )
               << flip.input.field << ' ' << flip.value;
            ++checked;
         }
      }
   }
   EXPECT_GT( checked, Mox::Test::stepsOf( 4000 ) );
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

   auto flips = [&]( Mox::StringView macro ) {
      std::vector<Mox::String> texts;
      for ( const MacroFlip& flip : flipsOf( *intf, macro ) )
         texts.push_back( flip.input.field + " " + flip.value + ": " +
                          flip.answer );
      return texts;
   };
   EXPECT_EQ( flips( "immediateOlistSg" ),
              ( std::vector<Mox::String>{
                 "assertWinnerMetric [R] 0.0.0.0 [2147483647/4294967295]: true",
                 "assertWinnerMetric [S] 192.0.2.5 [0/0]: true" } ) );
   // The best metric wins against that of an own source, the standby path may be here.
   sg.upJoined().rpf( Rpf{ intfId( "eth0" ), addr( "192.0.2.254" ), 0, { 0 } } );
   sg.rpfFrr( rpfBy( "eth5", "192.0.2.77" ) ).intf( "eth2" ).joined();
   intf.joinState( Intf::noInfo ).lostAssert( valueToStrep( AssertMetric() ) );
   EXPECT_EQ( flips( "lostAssertSg" ),
              std::vector<Mox::String>{
                 "assertWinnerMetric [S] 255.255.255.255 [0/0]: true" } );
   EXPECT_EQ(
      flips( "assertTrackingDesiredSg" ).back(),
      "rpfFrr " + valueToStrep( rpfBy( "eth1", "192.0.2.77" ) ) + ": true" );
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
