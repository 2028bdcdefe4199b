// Compares every macro with the oracle: over the whole product of the states that
// its axes span, and over random states of everything. The latter also show that
// nothing but the axes matters and that a call allocates nothing.
//
// PIMSM_ORACLE=full or brief chooses all values of an axis, or only its
// representatives. Release builds default to full, the slower others to brief.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <sstream>

#include "tests/model/macros/Allocations.h"
#include "tests/model/macros/MacroTable.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

bool wantsAll() {
   if ( const char* wanted = std::getenv( "PIMSM_ORACLE" ) )
      return Mox::StringView( wanted ) == "full";
#ifdef PIMSM_ORACLE_FULL
   return true;
#else
   return false;
#endif
}

constexpr int kSamples = 10000;

struct Counts {
   uint64_t states = 0, comparisons = 0;
};
Counts total;

class Totals : public testing::Environment {
   void TearDown() override {
      std::cout << "oracle: " << total.states << " states, " << total.comparisons
                << " comparisons in all\n";
   }
};
const testing::Environment* const kTotals =
   testing::AddGlobalTestEnvironment( new Totals );

// A World and the path that led to it, to be named in failures.
struct Walker {
   World world;
   std::vector<std::pair<const char*, int>> trail = {};

   void take( const Axis& axis, int value ) {
      axis.set( world, value );
      trail.emplace_back( axis.name, value );
   }
   Mox::String text() const {
      std::ostringstream text;
      for ( const auto& [name, value] : trail ) text << name << '=' << value << ' ';
      return text.str();
   }
};

// Visits the product of the axes from the n-th on; stops when `visit` returns
// false.
template <class Visit>
bool walk( const Axes& axes, bool all, Walker& walker, Visit visit, size_t n = 0 ) {
   if ( n == axes.size() ) return visit();
   const Axis& axis = axes[n];
   for ( int value : all || axis.few.empty() ? axis.values : axis.few ) {
      walker.take( axis, value );
      if ( !walk( axes, all, walker, visit, n + 1 ) ) return false;
      walker.trail.pop_back();
   }
   return true;
}

// A random value for each fact, save those that `kept` settles.
class Dice {
 public:
   explicit Dice( unsigned seed ) : engine_( seed ) {}

   void roll( const Macro& macro, Walker& walker, uint32_t kept = 0 ) {
      for ( const Axis& axis : allAxes() ) {
         if ( ( axis.slots & kept ) != 0 ) continue;
         walker.take( axis, axis.values[engine_() % axis.values.size()] );
      }
      keepContract( macro, walker.world );
   }

 private:
   std::mt19937 engine_;
};

unsigned seedOf() {
   static const unsigned seed =
      std::getenv( "PIMSM_SEED" )
         ? unsigned( std::atoi( std::getenv( "PIMSM_SEED" ) ) )
         : std::random_device()();
   return seed;
}

class MacroTest : public testing::TestWithParam<int> {
 protected:
   MacroTest() { model = walker.world; }

   const Macro& macro = macros()[size_t( GetParam() )];
   Walker walker{ worldFor( macro ) };
   Model model;
};

TEST_P( MacroTest, AgreesOverTheProduct ) {
   const bool all = wantsAll();
   uint64_t states = 0;
   walk( macro.axes, all, walker, [&] {
      ++states;
      model = walker.world;
      const Value is = macro.model( model );
      const Value shouldBe = macro.oracle( Oracle( walker.world ) );
      EXPECT_EQ( is, shouldBe ) << macro.name << ": " << walker.text();
      return is == shouldBe;
   } );
   total.states += states;
   total.comparisons += states;
   std::cout << macro.name << ": " << states << ( all ? "" : " representative" )
             << " states of " << macro.axes.size() << " facts";
   // Names the axes that are only sampled.
   const char* before = ", by representatives of ";
   for ( const Axis& axis : macro.axes ) {
      if ( !all || !axis.thinned ) continue;
      std::cout << before << axis.name;
      before = ", ";
   }
   std::cout << '\n';
}

TEST_P( MacroTest, AgreesAnywhereAndHeedsNothingElse ) {
   uint32_t axes = 0;
   for ( const Axis& axis : macro.axes ) axes |= axis.slots;
   Dice dice( seedOf() );
   for ( int i = 0; i != kSamples && !HasFailure(); ++i ) {
      walker.trail.clear();
      dice.roll( macro, walker );
      model = walker.world;
      const uint64_t before = allocations;
      const Value is = macro.model( model );
      EXPECT_EQ( allocations, before ) << "a call allocates";
      EXPECT_EQ( is, macro.oracle( Oracle( walker.world ) ) )
         << macro.name << ": " << walker.text() << "seed " << seedOf();
      dice.roll( macro, walker, axes );
      model = walker.world;
      EXPECT_EQ( macro.model( model ), is )
         << macro.name << " heeds another fact: " << walker.text() << "seed "
         << seedOf();
   }
   total.states += 2 * kSamples;
   total.comparisons += 2 * kSamples;
}

Mox::String macroName( const testing::TestParamInfo<int>& info ) {
   const Macro& macro = macros()[size_t( info.param )];
   return std::to_string( info.param ) + macro.name;
}

INSTANTIATE_TEST_SUITE_P( Each, MacroTest,
                          testing::Range( 0, int( macros().size() ) ), macroName );

// Each row of the table of departures is needed.
class DepartureTest : public testing::TestWithParam<int> {};

TEST_P( DepartureTest, Matters ) {
   Departures without = Departures().set();
   without.reset( size_t( GetParam() ) );
   const DepartureRow& row = kDepartures[GetParam()];
   Dice dice( seedOf() );
   Mox::String where;
   for ( const Macro& macro : macros() ) {
      Walker walker{ worldFor( macro ) };
      Model model;
      for ( int i = 0; i != kSamples / 4; ++i ) {
         dice.roll( macro, walker );
         model = walker.world;
         if ( macro.model( model ) ==
              macro.oracle( Oracle( walker.world, without ) ) )
            continue;
         where += Mox::String( " " ) + macro.name;
         break;
      }
   }
   EXPECT_NE( where, "" ) << row.name << ", seed " << seedOf();
   std::cout << row.name << "\n  RFC 7761: " << row.rfc << "\n  here: " << row.ours
             << "\n  decides in" << where << '\n';
}

INSTANTIATE_TEST_SUITE_P( Each, DepartureTest,
                          testing::Range( 0, int( kDepartureCount ) ),
                          []( const auto& row ) {
                             return kDepartures[row.param].name;
                          } );

}
}
