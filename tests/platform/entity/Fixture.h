// A small entity type with one attribute of every kind, and a recording observer.
#pragma once

#include <gtest/gtest.h>

#include <set>
#include <unordered_map>

#include "tests/support/Recorder.h"

namespace Mox::Test {

// clang-format off
#define TEST_LEAF_ATTRIBUTES( A ) \
   A( Fixed, id,     Id,     uint32_t, ,      "key" ) \
   A( Value, colour, Colour, String,   "red", "any text" ) \
   A( Value, weight, Weight, double,   1.5,   "kg" )
// clang-format on

class Leaf : public Entity {
 public:
   MOX_ENTITY( Leaf, TEST_LEAF_ATTRIBUTES )
   explicit Leaf( uint32_t id ) : id_( id ) { ++alive; }
   uint32_t mapKey() const { return id(); }
   static inline int alive = 0;

 protected:
   ~Leaf() override { --alive; }
};

using LeafMap = HashedMap<uint32_t, Leaf>;
using SortedLeafMap = OrderedMap<uint32_t, Leaf>;
using FlagMap = std::map<String, bool>;
using NumberSet = std::set<uint32_t>;

// clang-format off
#define TEST_TREE_ATTRIBUTES( A ) \
   A( Fixed,    name,    Name,    String,        ,    "given" ) \
   A( Value,    height,  Height,  uint8_t,       3,   "m" ) \
   A( Reacting, word,    Word,    uint32_t,      0,   "mirrors low" ) \
   A( Reacting, low,     Low,     bool,          false, "bit 0 of word" ) \
   A( Counter,  bumps,   Bumps,   uint8_t,       0,   "wraps at 256" ) \
   A( View,     friendly, Friendly, Leaf,        ,    "somebody else's" ) \
   A( Child,    crown,   Crown,   Leaf,          ,    "one of its own" ) \
   A( Map,      leaf,    Leaf,    LeafMap,       ,    "hashed" ) \
   A( Map,      sorted,  Sorted,  SortedLeafMap, ,    "ordered" ) \
   A( ValueMap, flag,    Flag,    FlagMap,       ,    "by name" ) \
   A( Set,      number,  Number,  NumberSet,     ,    "set" ) \
   A( Via,      colour,  Colour,  String,        crown, "the crown's" ) \
   A( Computed, total,   Total,   size_t,        ,    "leaves" )
// clang-format on

class Tree : public Entity {
 public:
   using LeafType = Leaf;
   MOX_ENTITY( Tree, TEST_TREE_ATTRIBUTES )
   explicit Tree( String name ) : name_( std::move( name ) ) {}
   size_t total() const { return leaf().size() + sorted().size(); }

 protected:
   ~Tree() override = default;
   void handleZeroReferences() override { leafDelAll(); }

 private:
   void handleWord() { lowIs( ( word() & 1 ) != 0 ); }
   void handleLow() { wordIs( ( word() & ~1U ) | static_cast<uint32_t>( low() ) ); }
   Ptr<Test::Leaf> newCrown() { return new Test::Leaf( 0 ); }
   Ptr<Test::Leaf> newLeaf( uint32_t id ) { return new Test::Leaf( id ); }
   Ptr<Test::Leaf> newSorted( uint32_t id ) { return new Test::Leaf( id ); }
};

PIMSM_TEST_RECORDER( TreeRecorder, Tree, TEST_TREE_ATTRIBUTES )

}
