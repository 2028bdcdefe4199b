// Scenario files as parsed: blocks of text, and the lines of each scenario.
// README.md explains the language.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace Scenario {

// A file's error and its place: "asserts.scenario:12: no time: +x".
struct ScriptError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

// "join A; +10 s; prune A => 10 s eth1 A left"
struct Line {
   int number = 0;
   std::vector<std::string> statements;
   // The changes caused by the statements, in order.
   std::vector<std::string> expected;
};

struct Story {
   std::string title;
   std::vector<std::string> watched;
   std::vector<std::string> preamble;  // statements that come first, unobserved
   std::vector<Line> lines;
   // A case on a line of its own: afterwards time passes until nothing is due any
   // more.
   bool isCase = false;
};

struct Variant {
   std::string from;
   std::string to;
};

struct Script {
   std::string path;
   std::string config;  // YAML of one VRF
   bool ipv6 = false;
   bool speaks = false;  // the router sends
   std::map<std::string, Variant> variants;
   std::map<std::string, std::string> names;  // the text that each name stands for
   // A word for several statements.
   std::map<std::string, std::vector<std::string>> defined;
   std::vector<Story> stories;
};

// A title as a filter can name it: letters and digits, words with capitals.
std::string testName( const std::string& title );

// Throws ScriptError.
Script readScript( const std::string& path );

}
