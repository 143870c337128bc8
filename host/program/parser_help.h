// Reads options and their explanations out of the parser. Only main.cpp, which includes the parser, includes
// this.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <utility>

#include "command_help.h"

namespace scansteps::host {

inline OptionHelp helpOf(const CLI::Option& option)
{
    OptionHelp help;
    for (const std::string& name : option.get_snames()) help.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) help.names.push_back("--" + name);
    if (help.names.empty()) help.type = option.get_name(true);  // "PIPELINE"
    // "TEXT:{error,warn,off}": the type, then what its validator says.
    const std::string type = option.get_type_name();
    const std::size_t colon = type.find(':');
    if (!help.names.empty() && option.get_items_expected_max() > 0) help.type = type.substr(0, colon);
    if (colon != std::string::npos && type.substr(colon + 1).starts_with('{')) {
        for (const std::string& value :
             CLI::detail::split(type.substr(colon + 2, type.size() - colon - 3), ','))
            help.values.push_back(value);
    }
    help.what = option.get_description();
    help.standard = option.get_default_str();
    help.required = option.get_required();
    help.repeats =
        option.get_expected_max() > 1 || option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
    return help;
}

inline CommandHelp helpOf(const CLI::App& app, const std::string& name)
{
    CommandHelp help{name, app.get_description(), app.get_footer(), {}};
    for (const CLI::Option* option : app.get_options())
        if (!option->get_group().empty()) help.options.push_back(helpOf(*option));
    return help;
}

/// The program itself, then its commands.
inline std::vector<CommandHelp> helpOfAll(const CLI::App& app)
{
    std::vector<CommandHelp> all = {helpOf(app, "")};
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        if (!command->get_group().empty()) all.push_back(helpOf(*command, command->get_name()));
    return all;
}

}  // namespace scansteps::host
