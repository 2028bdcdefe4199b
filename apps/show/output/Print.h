// Prints on standard output.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/show/output/Answer.h"

namespace Show {

// Folded to the output's width.
void printText( const std::string& text );
// `indent` -1 prints one line.
void printJson( const nlohmann::ordered_json& document, int indent = 2 );

// Why a receiver gets a group or not; without a receiver, of every interface of the
// group's routes.
ExitStatus printWhy( const Mirrors& mirrors, const Arguments& arguments );

}
