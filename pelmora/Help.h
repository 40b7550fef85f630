#pragma once

#include <CLI/CLI.hpp>
#include <memory>

namespace pelmora::cli {

// The help of `pelmora` and its commands, laid out as a person expects of a
// Unix command: a usage line spelled from the declared options, the
// summary, the options, then the command's help text.
//
//     usage: pelmora approvals --answer allow|allowAlways|deny|ask [--message TEXT]
//                              [--answers TEXT]... [--count N] [--timeout SECONDS]
//
// A prefix command's usage ends in the words it takes, "[--] CMD
// [ARGUMENT]..." unless it gives its own formatter another label:
//
//     auto formatter = helpFormatter();
//     formatter->label("prefix words", "TITLE [BODY] [OPTION]...");
//     app.formatter(formatter);
std::shared_ptr<CLI::Formatter> helpFormatter();

} // namespace pelmora::cli
