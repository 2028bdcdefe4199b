// The command line of a program, by CLI11.
#pragma once

namespace CLI {
class App;
}

namespace Programs {

// Parses the arguments. False when help or the version was asked for and is printed.
// Throws WrongUsage with a line about the error.
bool parsed( CLI::App& app, int argc, char** argv );

}
