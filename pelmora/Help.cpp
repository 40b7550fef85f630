#include "Help.h"

#include <string>
#include <utility>
#include <vector>

namespace pelmora::cli {
namespace {

constexpr std::size_t lineWidth = 80;

class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() {
        column_width(24);
        label("REQUIRED", "(required)");
        label("Positionals", "arguments");
        label("prefix words", "[--] CMD [ARGUMENT]...");
    }

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        std::string out = make_usage(app, std::move(name));
        if (!app->get_description().empty()) {
            out += "\n" + app->get_description() + "\n";
        }
        out += make_positionals(app) + make_groups(app, mode) + make_subcommands(app, mode);
        if (!app->get_footer().empty()) {
            out += "\n" + app->get_footer() + "\n";
        }
        return out;
    }

    // The options as the command line takes them, wrapped under the first one.
    std::string make_usage(const CLI::App* app, std::string name) const override {
        std::string out = "usage: " + name;
        if (!app->get_subcommands({}).empty()) {
            return out + " <command> [options]\n";
        }
        const std::size_t indent = out.size();
        std::size_t lineLength = out.size();
        for (const CLI::Option* option : app->get_options()) {
            // An option in no group is hidden from the help, so from its usage line too.
            if (option == app->get_help_ptr() || option->get_group().empty()) {
                continue;
            }
            std::string word = option->get_name(option->get_positional());
            if (!option->get_positional() && !option->get_type_name().empty()) {
                word += " " + option->get_type_name();
            }
            if (!option->get_required()) {
                word = "[" + word + "]";
            }
            if (option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll) {
                word += "...";
            }
            if (lineLength + 1 + word.size() > lineWidth && lineLength > indent) {
                out += "\n" + std::string(indent, ' ');
                lineLength = indent;
            }
            out += " " + word;
            lineLength += 1 + word.size();
        }
        if (app->get_prefix_command()) {
            out += " " + get_label("prefix words");
        }
        return out + "\n";
    }
};

} // namespace

std::shared_ptr<CLI::Formatter> helpFormatter() {
    return std::make_shared<HelpFormatter>();
}

} // namespace pelmora::cli
