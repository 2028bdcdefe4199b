#include "apps/show/metrics/Exposition.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace Show {

namespace {

std::string escaped( const std::string& value ) {
   std::string out;
   for ( char c : value ) {
      if ( c == '\\' || c == '"' || c == '\n' ) out += '\\';
      out += c == '\n' ? 'n' : c;
   }
   return out;
}

std::string sample( const std::string& name, const Exposition::Labels& labels,
                    const std::string& value ) {
   std::string list;
   for ( const auto& [label, text] : labels )
      list += fmt::format( "{}{}=\"{}\"", list.empty() ? "" : ",", label,
                           escaped( text ) );
   return list.empty() ? fmt::format( "{} {}\n", name, value )
                       : fmt::format( "{}{{{}}} {}\n", name, list, value );
}

}

Exposition::Family& Exposition::family( const char* name, const char* type,
                                        const char* help ) {
   auto found = std::find_if( families_.begin(), families_.end(),
                              [&]( const Family& f ) { return f.name == name; } );
   if ( found != families_.end() ) return *found;
   return families_.emplace_back( Family{
      name, fmt::format( "# HELP {0} {1}\n# TYPE {0} {2}\n", name, help, type ),
      "" } );
}

void Exposition::gauge( const char* name, const char* help, const Labels& labels,
                        double value ) {
   family( name, "gauge", help ).samples +=
      sample( name, labels, fmt::format( "{}", value ) );
}

void Exposition::counter( const char* name, const char* help, const Labels& labels,
                          uint64_t value ) {
   family( name, "counter", help ).samples +=
      sample( name, labels, std::to_string( value ) );
}

void Exposition::histogram( const char* name, const char* help,
                            const Labels& labels, const Counts& counts ) {
   Family& into = family( name, "histogram", help );
   const std::string bucket = std::string( name ) + "_bucket";
   uint64_t below = 0, sum = 0;
   auto next = counts.begin();
   auto add = [&]( const std::string& limit ) {
      Labels with = labels;
      with.emplace_back( "le", limit );
      into.samples += sample( bucket, with, std::to_string( below ) );
   };
   const auto addUpTo = [&]( uint64_t limit, const std::string& label ) {
      for ( ; next != counts.end() && next->first <= limit; ++next ) {
         below += next->second;
         sum += next->first * next->second;
      }
      add( label );
   };
   for ( uint64_t limit = 1; limit <= lastBucket; limit *= 2 )
      addUpTo( limit, std::to_string( limit ) );
   addUpTo( std::numeric_limits<uint64_t>::max(), "+Inf" );
   into.samples +=
      sample( std::string( name ) + "_sum", labels, std::to_string( sum ) );
   into.samples +=
      sample( std::string( name ) + "_count", labels, std::to_string( below ) );
}

std::string Exposition::text() const {
   std::string out;
   for ( const Family& each : families_ ) out += each.head + each.samples;
   return out;
}

}
