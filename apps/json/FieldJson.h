// The fields that a macro reads, as JSON: named and valued as routes has them.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Show {

// "join-state" of "joinState".
std::string fieldName( const std::string& field );

// Of a value in the text form of Derivation.h: true, "no-info", a path as an object; null
// for a path that is not there, "infinite" for the infinite metric.
nlohmann::ordered_json fieldValue( const std::string& field,
                                   const std::string& value );

}
