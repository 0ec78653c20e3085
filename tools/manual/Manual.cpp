#include "manual/Manual.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace Velmora::Cli {

namespace {

/// Escapes text for roff, so that it holds no requests.
std::string plain(const std::string &text)
{
    std::string result;
    bool lineStart = true;
    for (const char character : text) {
        if (lineStart && (character == '.' || character == '\''))
            result += "\\&";
        if (character == '\\')
            result += "\\e";
        else if (character == '-')
            result += "\\-";
        else
            result += character;
        lineStart = character == '\n';
    }
    return result;
}

std::string upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char character) { return char(std::toupper(character)); });
    return text;
}

std::string preformatted(const std::string &text)
{
    return text.empty() ? std::string() : ".PP\n.nf\n" + plain(text) + "\n.fi\n";
}

std::string usage(const CLI::App &command)
{
    std::string text = "velmora " + command.get_name() + " [OPTIONS]";
    for (const CLI::Option *option : command.get_options())
        if (option->get_positional()) {
            const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
            text += option->get_required() ? ' ' + name : " [" + name + ']';
        }
    return plain(text);
}

std::string entry(const CLI::Option &option)
{
    std::string text = ".TP\n";
    if (option.get_positional())
        return text + "\\fI" + plain(option.get_name(true)) + "\\fR\n" + plain(option.get_description()) + '\n';
    const char *separator = "";
    for (const std::string &name : option.get_snames()) {
        text += separator + ("\\fB\\-" + plain(name)) + "\\fR";
        separator = ", ";
    }
    for (const std::string &name : option.get_lnames()) {
        text += separator + ("\\fB\\-\\-" + plain(name)) + "\\fR";
        separator = ", ";
    }
    if (option.get_items_expected_max() > 0)
        text += " \\fI" + plain(option.get_type_name()) + "\\fR";
    return text + '\n' + plain(option.get_description()) + '\n';
}

/// A section for each paragraph; a first line such as "Environment:" is its title.
std::string sections(const std::string &footer)
{
    std::string text;
    for (std::size_t begin = 0; begin < footer.size();) {
        const std::size_t end = std::min(footer.find("\n\n", begin), footer.size());
        const std::string paragraph = footer.substr(begin, end - begin);
        const std::size_t firstEnd = paragraph.find(":\n");
        if (firstEnd < paragraph.find('\n'))
            text += ".SH " + upper(plain(paragraph.substr(0, firstEnd))) + '\n' +
                    preformatted(paragraph.substr(firstEnd + 2));
        else
            text += ".SH NOTES\n" + preformatted(paragraph);
        begin = end + 2;
    }
    return text;
}

} // namespace

std::string manualPage(const CLI::App &app, const std::string &sharedGroup)
{
    const std::string name = plain(app.get_name());
    const std::string description = app.get_description();
    const std::size_t end = std::min(description.find('.'), description.size());
    const auto commands = app.get_subcommands([](const CLI::App *command) { return !command->get_group().empty(); });
    std::ostringstream page;
    page << ".TH " << upper(app.get_name()) << " 1 \"\" \"" << plain(app.version()) << "\"\n.SH NAME\n"
         << name << " \\- " << plain(description.substr(0, end)) << "\n.SH SYNOPSIS\n.B " << name << '\n'
         << (commands.empty() ? "[OPTIONS]" : "COMMAND [OPTIONS] [ARGUMENTS]") << '\n';
    if (end + 1 < description.size())
        page << ".SH DESCRIPTION\n" << plain(description.substr(end + 2)) << '\n';
    page << ".SH OPTIONS\n";
    for (const CLI::Option *option : app.get_options())
        if (!option->get_group().empty())
            page << entry(*option);
    if (!commands.empty())
        page << ".SH COMMANDS\n";
    for (const CLI::App *command : commands) {
        page << ".SS \"" << usage(*command) << "\"\n" << plain(command->get_description()) << ".\n";
        for (const CLI::Option *option : command->get_options())
            if (option->get_group() != sharedGroup && option != command->get_help_ptr())
                page << entry(*option);
        page << preformatted(command->get_footer());
    }
    page << sections(app.get_footer());
    return page.str();
}

} // namespace Velmora::Cli
