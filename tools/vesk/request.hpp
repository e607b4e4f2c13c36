// What the command line asks for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/vesk/input.hpp"

namespace vesk::tool {

struct Request {
    std::string schema;  // a library of other types; empty for the 95
    std::string type;
    std::vector<std::string> files;  // "-" is standard input
    Form form = Form::raw;           // of input, and of what `encode` writes
    bool json = false;
    bool text = false;
    bool table = false;
    bool frames = false;
    bool differences = false;
    std::string html;
    std::string path;
    std::string socket;
    double interval = 2;
    std::vector<std::string> kinds;
    std::string recording;
    std::vector<std::string> program;  // and its arguments
    std::string limit = "64M";         // bytes of a recording
    std::string extract;               // a folder
};

// Each verb returns an exit status, and throws Failure if it can do nothing.
int show_types(const Request& request);
int show_type(const Request& request);
int decode_files(const Request& request);
int encode_file(const Request& request);
int check_files(const Request& request);
int map_file(const Request& request);
int guess_type(const Request& request);
int peek_file(const Request& request);
int diff_files(const Request& request);
int watch_service(const Request& request);
int record_program(const Request& request);
int replay_file(const Request& request);

}  // namespace vesk::tool
