// Flag sets: a 32-bit word of named single-bit flags.
//
//    #define MARKS( FLAG ) FLAG( first, 'F' ) FLAG( second, 'S' )
//    MOX_FLAGS( Marks, "Name::Space::", MARKS )
//
// inside a class or namespace declares the type with its text forms, and a reader
// and a mutator for each flag. A temporary has no mutators: the changed copy would
// be lost. Row order gives the bits: the first flag is 0x1. The limit is the word
// of all flags; a word above it is refused with the RangeError "<Type>::value >
// 0x<limit> not allowed". The letter stands for the flag in compact trace forms; a
// space means no letter.
#pragma once

#include <cstdint>
#include <span>

#include "platform/base/Text.h"

namespace Mox {

struct FlagRow {
   StringView name;
   char letter;
};

namespace Detail {
[[noreturn]] PIMSM_API void flagsOutOfRange( StringView type, uint32_t limit );
PIMSM_API String flagsText( uint32_t word, StringView fullName,
                            std::span<const FlagRow> rows );
PIMSM_API uint32_t parseFlags( StringIter& begin, StringIter end,
                               StringView fullName, std::span<const FlagRow> rows );
}

// The letters of the set flags in bit order, "0" for an empty word.
PIMSM_API String compactFlags( uint32_t word, std::span<const FlagRow> rows );

// The word-level operations that every flag set has.
template <class Self>
class FlagSet {
 public:
   constexpr FlagSet() = default;

   uint32_t value() const { return word_; }

   // Throws RangeError above the limit.
   void valueIs( uint32_t word ) & {
      if ( word > Self::limit )
         Detail::flagsOutOfRange( Self::typeName, Self::limit );
      word_ = word;
   }

   bool flag( unsigned bit ) const { return ( ( word_ >> bit ) & 1 ) != 0; }
   // Throws RangeError for a bit beyond the limit.
   void flagIs( unsigned bit, bool on ) & {
      if ( bit >= Self::flagCount )
         Detail::flagsOutOfRange( Self::typeName, Self::limit );
      const uint32_t mask = 1U << bit;
      word_ = on ? word_ | mask : word_ & ~mask;
   }

   friend bool operator==( const FlagSet&, const FlagSet& ) = default;

 protected:
   explicit FlagSet( uint32_t word ) { valueIs( word ); }

 private:
   uint32_t word_ = 0;
};

}

#define MOX_FLAGS_BIT( name, letter ) name##Bit,
#define MOX_FLAGS_ROW( name, letter ) ::Mox::FlagRow{ #name, letter },
#define MOX_FLAGS_ACCESS( name, letter ) \
   bool name() const {                   \
      return flag( name##Bit );          \
   }                                     \
   void name##Is( bool on )& {           \
      flagIs( name##Bit, on );           \
   }

#define MOX_FLAGS( Type, Scope, ROWS )                                             \
   class Type : public ::Mox::FlagSet<Type> {                                      \
    public:                                                                        \
      enum Bit : unsigned { ROWS( MOX_FLAGS_BIT ) flagCount };                     \
      static constexpr uint32_t limit = ( 1U << flagCount ) - 1;                   \
      static constexpr const char* typeName = #Type;                               \
      static constexpr const char* fullName = Scope #Type;                         \
      Type() = default;                                                            \
      /* Throws RangeError above the limit. */                                     \
      explicit Type( uint32_t word ) : FlagSet( word ) {}                          \
      /* Reads the canonical text and advances `begin`. */                         \
      Type( ::Mox::StringIter& begin, ::Mox::StringIter end ) {                    \
         sequenceToValue( begin, end, *this );                                     \
      }                                                                            \
      ROWS( MOX_FLAGS_ACCESS )                                                     \
      static std::span<const ::Mox::FlagRow> rows() {                              \
         static constexpr ::Mox::FlagRow all[] = { ROWS( MOX_FLAGS_ROW ) };        \
         return all;                                                               \
      }                                                                            \
      friend ::Mox::String valueToStrep( const Type& flags ) {                     \
         return ::Mox::Detail::flagsText( flags.value(), fullName, rows() );       \
      }                                                                            \
      friend void sequenceToValue( ::Mox::StringIter& begin,                       \
                                   ::Mox::StringIter end, Type& out ) {            \
         out.valueIs( ::Mox::Detail::parseFlags( begin, end, fullName, rows() ) ); \
      }                                                                            \
      /* In an unnamed namespace clang asks that it be used. */                    \
      [[maybe_unused]] friend std::ostream& operator<<( std::ostream& stream,      \
                                                        const Type& flags ) {      \
         return ::Mox::Detail::put( stream, valueToStrep( flags ) );               \
      }                                                                            \
   };
