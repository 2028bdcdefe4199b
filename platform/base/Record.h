// Value records: plain structs of named fields with a text form.
//
//    #define PIMSM_HOLD( FIELD ) FIELD( double, until, 0.0 ) FIELD( bool, on, false )
//    struct Hold {
//       PIMSM_HOLD( MOX_RECORD_FIELD )
//       bool operator==( const Hold& ) const = default;
//    };
//    MOX_RECORD_TEXT( Hold, "Name::Space::Hold", PIMSM_HOLD )
//    MOX_STREAM_TEXT( Hold )
//
// The text is "Value('<full type name>', ** {'<field>': <value>, ...})" in row
// order; the parser reads the same keys in the same order and reports a failure
// under the field's name.
#pragma once

#include "platform/base/Text.h"

namespace Mox {

// Assembles the value notation field by field.
class RecordPrinter {
 public:
   explicit RecordPrinter( StringView typeName )
      : out_( "Value('" + String( typeName ) + "', ** {" ) {}

   template <class T>
   void field( StringView name, const T& value ) {
      if ( !first_ ) out_ += ", ";
      first_ = false;
      out_ += "'";
      out_ += name;
      out_ += "': ";
      out_ += valueToStrep( value );
   }

   String text() { return std::move( out_ ) + "})"; }

 private:
   String out_;
   bool first_ = true;
};

// Reads the value notation back field by field.
class RecordParser {
 public:
   RecordParser( StringIter& begin, StringIter end, StringView typeName )
      : begin_( begin ), end_( end ) {
      expectLiteral( begin_, end_, "Value('" + String( typeName ) + "', ** {" );
   }

   template <class T>
   void field( StringView name, T& out ) {
      expectLiteral( begin_, end_,
                     ( first_ ? "'" : ", '" ) + String( name ) + "': " );
      first_ = false;
      fieldToValue( begin_, end_, name, out );
   }

   void finish() { expectLiteral( begin_, end_, "})" ); }

 private:
   StringIter& begin_;
   StringIter end_;
   bool first_ = true;
};

}

#define MOX_RECORD_FIELD( type, name, ... ) type name = __VA_ARGS__;
#define MOX_RECORD_PRINT( type, name, ... ) printer.field( #name, value.name );
#define MOX_RECORD_PARSE( type, name, ... ) parser.field( #name, out.name );

#define MOX_RECORD_TEXT( Type, fullName, ROWS )                                  \
   inline ::Mox::String valueToStrep( const Type& value ) {                      \
      ::Mox::RecordPrinter printer( fullName );                                  \
      ROWS( MOX_RECORD_PRINT )                                                   \
      return printer.text();                                                     \
   }                                                                             \
   inline void sequenceToValue( ::Mox::StringIter& begin, ::Mox::StringIter end, \
                                Type& out ) {                                    \
      ::Mox::RecordParser parser( begin, end, fullName );                        \
      ROWS( MOX_RECORD_PARSE )                                                   \
      parser.finish();                                                           \
   }

// operator<< that prints the text form, for types without a shorter one for traces.
#define MOX_STREAM_TEXT( Type )                                                 \
   inline std::ostream& operator<<( std::ostream& stream, const Type& value ) { \
      return ::Mox::Detail::put( stream, valueToStrep( value ) );               \
   }
