#include "tools/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <vector>

namespace ORVEL::TOOLS {
namespace {

enum class Value { kNone, kNumberOrText, kChoice, kFile, kFolder, kModel };

// An option or a positional argument, as a shell needs to know it.
struct Argument {
  std::vector<std::string> names;  // with their dashes; none for a positional argument
  std::string description;
  Value value = Value::kNone;
  std::string choices;  // between blanks
  bool repeats = false;
};

struct Command {
  std::string name;
  std::string description;
  std::vector<Argument> options;
  std::vector<Argument> positionals;
};

// "TEXT:{raw,wav}" of the parser as "raw wav".
std::string choicesIn(const std::string& type) {
  const std::size_t open = type.find('{');
  const std::size_t close = type.find('}');
  if (open == std::string::npos || close == std::string::npos) {
    return {};
  }
  std::string words = type.substr(open + 1, close - open - 1);
  std::replace(words.begin(), words.end(), ',', ' ');
  return words;
}

Argument describe(const CLI::Option& option) {
  Argument argument;
  for (const std::string& name : option.get_lnames()) {
    argument.names.push_back("--" + name);
  }
  for (const std::string& name : option.get_snames()) {
    argument.names.push_back("-" + name);
  }
  argument.description = option.get_description();
  argument.choices = choicesIn(option.get_type_name());
  argument.repeats = option.get_items_expected_max() > 1;
  const std::string& name = option.get_single_name();
  if (option.get_items_expected_max() == 0) {  // a flag
    argument.value = Value::kNone;
  } else if (!argument.choices.empty()) {
    argument.value = Value::kChoice;
  } else if (name.ends_with("-dir")) {
    argument.value = Value::kFolder;
  } else if (name == "model") {
    argument.value = Value::kModel;
  } else {
    argument.value =
        argument.names.empty() || name == "output" ? Value::kFile : Value::kNumberOrText;
  }
  return argument;
}

Command describe(const CLI::App& app) {
  Command command{app.get_name(), app.get_description(), {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    Argument argument = describe(*option);
    (argument.names.empty() ? command.positionals : command.options).push_back(std::move(argument));
  }
  return command;
}

std::vector<Command> commandsOf(const CLI::App& app) {
  std::vector<Command> commands;
  for (const CLI::App* command : app.get_subcommands({})) {
    commands.push_back(describe(*command));
  }
  return commands;
}

std::string joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

std::string optionNames(const std::vector<Argument>& options) {
  std::vector<std::string> names;
  for (const Argument& option : options) {
    names.insert(names.end(), option.names.begin(), option.names.end());
  }
  return joined(names, " ");
}

// A backslash before each of the characters; single quotes for use between single quotes.
std::string escaped(const std::string& text, const std::string& characters) {
  std::string result;
  for (const char c : text) {
    if (c == '\'') {
      result += "'\\''";
      continue;
    }
    if (characters.find(c) != std::string::npos) {
      result += '\\';
    }
    result += c;
  }
  return result;
}

constexpr const char* kModelNames =
    "$(orvel models 2> /dev/null | sed -n 's/^  *\\([^ ]*\\) .*/\\1/p')";

std::string bashReply(const Argument& argument) {
  switch (argument.value) {
    case Value::kChoice:
      return "COMPREPLY=($(compgen -W '" + argument.choices + "' -- \"$word\"))";
    case Value::kModel:
      return std::string("COMPREPLY=($(compgen -W \"") + kModelNames + "\" -- \"$word\"))";
    case Value::kFolder:
      return "compopt -o dirnames +o default";
    case Value::kNumberOrText:
      return "compopt +o default";
    default:
      return ":";
  }
}

std::string bash(const Command& program, const std::vector<Command>& commands) {
  std::vector<std::string> names;
  names.reserve(commands.size());
  for (const Command& command : commands) {
    names.push_back(command.name);
  }
  std::string text =
      "# bash completion for orvel\n"
      "_orvel() {\n"
      "  local word=$2 before=$3 command='' each\n"
      "  for each in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
      "    case $each in " +
      joined(names, " | ") + ") command=$each; break ;; esac\n  done\n  COMPREPLY=()\n" +
      "  case $command:$before in\n";
  for (const Command& command : commands) {
    for (const Argument& option : command.options) {
      if (option.value == Value::kNone) {
        continue;
      }
      std::vector<std::string> patterns;
      for (const std::string& name : option.names) {
        patterns.push_back(command.name + ":" + name);
      }
      text += "    " + joined(patterns, " | ") + ") " + bashReply(option) + "; return ;;\n";
    }
  }
  text += "  esac\n  case $command:$word in\n    :-*) COMPREPLY=($(compgen -W '" +
          optionNames(program.options) + "' -- \"$word\")) ;;\n    :*) COMPREPLY=($(compgen -W '" +
          joined(names, " ") + "' -- \"$word\")) ;;\n";
  for (const Command& command : commands) {
    text += "    " + command.name + ":-*) COMPREPLY=($(compgen -W '" +
            optionNames(command.options) + " " + optionNames(program.options) +
            "' -- \"$word\")) ;;\n";
    text += "    " + command.name + ":*) " +
            (command.positionals.empty() ? "compopt +o default"
                                         : bashReply(command.positionals.front())) +
            " ;;\n";
  }
  return text + "  esac\n}\ncomplete -o default -F _orvel orvel\n";
}

std::string zshAction(const Argument& argument) {
  switch (argument.value) {
    case Value::kChoice:
      return "(" + argument.choices + ")";
    case Value::kModel:
      return "_orvel_models";
    case Value::kFolder:
      return "_files -/";
    case Value::kFile:
      return "_files";
    default:
      return " ";
  }
}

std::string zshArgument(const Argument& argument) {
  if (argument.names.empty()) {
    return std::string(" \\\n        '") + (argument.repeats ? "*" : "") + ":" +
           escaped(argument.description, ":") + ":" + zshAction(argument) + "'";
  }
  std::string text;
  for (const std::string& name : argument.names) {
    text += std::string(" \\\n        '") +
            (argument.repeats ? "*" : "(" + joined(argument.names, " ") + ")") + name + "[" +
            escaped(argument.description, "[]:") + "]" +
            (argument.value == Value::kNone ? "" : ":value:" + zshAction(argument)) + "'";
  }
  return text;
}

std::string zsh(const Command& program, const std::vector<Command>& commands) {
  std::string global;
  for (const Argument& option : program.options) {
    global += zshArgument(option);
  }
  std::string text = std::string("#compdef orvel\n_orvel_models() { compadd -- ") + kModelNames +
                     "; }\n_orvel() {\n  local curcontext=$curcontext state line\n"
                     "  _arguments -C" +
                     global + " \\\n        '1:command:((";
  for (const Command& command : commands) {
    text += " " + command.name + "\\:\"" + escaped(command.description, ":\"") + "\"";
  }
  text += "))' '*::argument:->arguments'\n  case $line[1] in\n";
  for (const Command& command : commands) {
    text += "    " + command.name + ")\n      _arguments" + global;
    for (const Argument& option : command.options) {
      if (option.names.front() != "--help") {  // among those of every command
        text += zshArgument(option);
      }
    }
    for (const Argument& positional : command.positionals) {
      text += zshArgument(positional);
    }
    text += " ;;\n";
  }
  return text + "  esac\n}\n_orvel \"$@\"\n";
}

std::string fishArgument(const std::string& condition, const Argument& argument) {
  std::string text = "complete -c orvel -n '" + condition + "'";
  for (const std::string& name : argument.names) {
    text += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  switch (argument.value) {
    case Value::kChoice:
      text += " -xa '" + argument.choices + "'";
      break;
    case Value::kModel:
      text += " -xa \"(orvel models 2> /dev/null | string match -rg '^ +(\\S+)')\"";
      break;
    case Value::kFolder:
      text += " -xa '(__fish_complete_directories)'";
      break;
    case Value::kFile:
      text += " -rF";
      break;
    case Value::kNumberOrText:
      text += " -x";
      break;
    case Value::kNone:
      break;
  }
  // fish knows \' where other shells have to leave the quotes.
  std::string description;
  for (const char c : argument.description) {
    description += (c == '\'' || c == '\\' ? "\\" : "") + std::string(1, c);
  }
  return text + " -d '" + description + "'\n";
}

std::string fish(const Command& program, const std::vector<Command>& commands) {
  std::string text = "# fish completion for orvel\n";
  for (const Argument& option : program.options) {
    text += fishArgument("true", option);
  }
  for (const Command& command : commands) {
    text += "complete -c orvel -n __fish_use_subcommand -fa " + command.name + " -d '" +
            command.description + "'\n";
    const std::string condition = "__fish_seen_subcommand_from " + command.name;
    for (const Argument& option : command.options) {
      if (option.names.front() != "--help") {
        text += fishArgument(condition, option);
      }
    }
    for (const Argument& positional : command.positionals) {
      if (positional.value == Value::kModel || positional.value == Value::kChoice) {
        text += fishArgument(condition, positional);
      }
    }
  }
  return text;
}

}  // namespace

std::string completionScript(const CLI::App& app, const std::string& shell) {
  const Command program = describe(app);
  const std::vector<Command> commands = commandsOf(app);
  return shell == "bash"  ? bash(program, commands)
         : shell == "zsh" ? zsh(program, commands)
                          : fish(program, commands);
}

}  // namespace ORVEL::TOOLS
