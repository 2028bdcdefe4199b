// The fields that a macro reads, as JSON with the names and values of `routes`.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace Show {

// "join-state" of "joinState".
std::string fieldName( const std::string& field );

// The JSON of a value in Derivation.h's text form: true, "no-info", a path as an
// object; null for an absent path, "infinite" for the infinite metric.
nlohmann::ordered_json fieldValue( const std::string& field,
                                   const std::string& value );

}
