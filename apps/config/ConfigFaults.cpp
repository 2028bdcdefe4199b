#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "apps/config/detail/VrfReader.h"

namespace Agent {
namespace {

// Takes the values with faults out of a document, so that the next ones are found. A part
// whose name has one goes on under another name, and one whose address has, with another.
class Faults {
 public:
   explicit Faults( YAML::Node root ) : root_( std::move( root ) ) {}

   std::vector<std::string> all( const std::string& name ) {
      while ( faults_.size() < maxFaults ) {
         try {
            readRoot( { root_, &name } );
            break;
         } catch ( const NodeError& e ) {
            const bool told = follows( e ), used = usesName( e );
            const size_t names = renamed_.size();
            const bool mended = mend( e );
            const bool isName = renamed_.size() != names;
            if ( !told && ( isName || !used ) )
               faults_.emplace( e.node().Mark().line, e.what() );
            if ( !mended ) break;
         }
      }
      std::vector<std::string> texts;
      for ( const auto& [line, text] : faults_ ) texts.push_back( text );
      return texts;
   }

 private:
   static constexpr const char* kName = "name";

   bool isGone( const YAML::Node& part, const std::string& key ) const {
      return std::any_of( gone_.begin(), gone_.end(), [&]( const auto& each ) {
         return each.first.is( part ) && each.second == key;
      } );
   }

   // Is the fault that a part is gone which this took out?
   bool follows( const NodeError& e ) const {
      if ( faults_.empty() ) return false;
      return e.node().is( root_ ) || isGone( e.node(), e.missing() );
   }

   // Is it the use of a name that has a fault itself, or was given here?
   bool usesName( const NodeError& e ) const {
      const std::string text = e.node().IsScalar() ? e.node().Scalar() : "";
      return names_.count( text ) != 0 || renamed_.count( text ) != 0;
   }

   bool mend( const NodeError& e ) {
      if ( e.missing() != kName || isGone( e.node(), kName ) )
         return takeOut( root_, e.node(), 0 );
      rename( e.node() );
      return true;
   }

   void rename( YAML::Node part ) {
      const std::string name = fmt::format( "part {}", renamed_.size() + 1 );
      renamed_.insert( name );
      part[kName] = name;
   }

   // Takes the node out of what holds it, a key with its value. An alias may make a
   // value part of itself, or of very many.
   bool takeOut( YAML::Node within, const YAML::Node& node, int depth ) {
      constexpr int kDeepest = 32;
      constexpr size_t kMostVisits = 4000000;  // in all
      if ( depth > kDeepest || ++visits_ > kMostVisits ) return false;
      if ( within.IsMap() ) {
         for ( const auto& entry : within ) {
            if ( entry.first.is( node ) || entry.second.is( node ) )
               return takeKey( within, entry.first, entry.second,
                               entry.first.is( node ) );
            if ( takeOut( entry.second, node, depth + 1 ) ) return true;
         }
      } else if ( within.IsSequence() ) {
         for ( size_t i = 0; i < within.size(); ++i ) {
            if ( within[i].is( node ) ) return within.remove( i );
            if ( takeOut( within[i], node, depth + 1 ) ) return true;
         }
      }
      return false;
   }

   // `key` and `value` are of the part; `unknown`: the key itself is the fault.
   bool takeKey( YAML::Node part, const YAML::Node& key, const YAML::Node& value,
                 bool unknown ) {
      const bool name = !unknown && key.Scalar() == kName;
      const std::string text = value.IsScalar() ? value.Scalar() : "";
      const std::string other = unknown ? "" : standIn( part, key.Scalar(), text );
      gone_.emplace_back( part, key.Scalar() );
      if ( !part.remove( YAML::Node( key ) ) ) return false;
      if ( renamed_.count( text ) != 0 ) return true;
      if ( !other.empty() ) {
         renamed_.insert( other );
         part[key.Scalar()] = other;
      }
      if ( !name ) return true;
      if ( !text.empty() ) names_.insert( text );
      rename( part );
      return true;
   }

   // What a part has in the place of a faulty address that it cannot do without, so that
   // the rest of it is read; empty: for other keys. No network uses it.
   std::string standIn( const YAML::Node& part, const std::string& key,
                        const std::string& faulty ) const {
      const bool ofRoute = part["rp"].IsDefined();  // an advertised one
      const bool group = ofRoute && key == "group";
      const bool known = group || key == "address" || key == "prefix" ||
                         key == "rp" || ( ofRoute && key == "source" );
      if ( !known ) return "";
      const size_t number = renamed_.size() + 1;
      if ( isIpv6( part, faulty ) )
         return fmt::format( "{}::{:x}{}", group ? "ff0e" : "3fff", number,
                             key == "prefix" ? "/128" : "" );
      return fmt::format( "{}.{}.{}{}", group ? "239.255" : "240.0", number / 256,
                          number % 256, key == "prefix" ? "/32" : "" );
   }

   // By what is left of the faulty text, or else by the part's other addresses.
   static bool isIpv6( const YAML::Node& part, const std::string& faulty ) {
      const auto has = []( const YAML::Node& node ) {
         return node.IsScalar() && node.Scalar().find( ':' ) != std::string::npos;
      };
      if ( faulty.find_first_of( ".:" ) != std::string::npos )
         return faulty.find( ':' ) != std::string::npos;
      return std::any_of( part.begin(), part.end(), [&]( const auto& entry ) {
         return has( entry.second ) ||
                ( entry.second.IsSequence() &&
                  std::any_of( entry.second.begin(), entry.second.end(), has ) );
      } );
   }

   YAML::Node root_;
   size_t visits_ = 0;
   std::multimap<int, std::string> faults_;                // by line
   std::vector<std::pair<YAML::Node, std::string>> gone_;  // keys of maps
   std::set<std::string> names_;                           // with faults
   std::set<std::string> renamed_;                         // in their places
};

}

std::vector<std::string> configFaults( const std::string& text,
                                       const std::string& name ) {
   try {
      parseConfig( text, name );
      return {};
   } catch ( const NodeError& ) {
      return Faults( YAML::Load( text ) ).all( name );
   } catch ( const ConfigError& e ) {
      return { e.what() };
   }
}

}
