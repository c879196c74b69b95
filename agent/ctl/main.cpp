#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/ctl/AnswerLines.h"
#include "agent/ctl/ControlCommandLine.h"
#include "agent/ctl/ControlOutput.h"
#include "agent/report/ReportData.h"
#include "agent/report/ReportFile.h"
#include "agent/text/Wording.h"

namespace {

using namespace Agent;  // NOLINT(google-build-using-namespace): this belongs to the agent

constexpr int done = 0;
constexpr int couldNot = 1;
constexpr int wrongUsage = 2;

void print(std::string const& text) {
  errno = 0;
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (std::fflush(stdout) != 0 || std::ferror(stdout))
    throw std::runtime_error(
        message("cannot write to standard output: ", std::generic_category().message(errno),
                "; make room or keep its reader running"));
}

Json documentIn(AnswerLines& lines) {
  ShownLists lists;
  for (Json line; lines.next(line);) lists.add(std::move(line));
  return lists.takeDocument();
}

std::string shownText(ControlCommand const& command, AnswerLines& lines) {
  Json const document = documentIn(lines);
  if (command.json) return document.dump(2) + '\n';
  std::ostringstream out;
  if (command.request.command == "trace")
    printTraceHandles(out, document);
  else
    printShown(out, command.request, document);
  return out.str();
}

bool asksForLists(Request const& request) {
  return request.command == "show" || (request.command == "trace" && request.levels.empty());
}

void monitor(ControlCommand const& command, AnswerLines& lines) {
  for (Json line; lines.next(line);) {
    std::string text = monitorText(line);
    if (text.empty()) continue;
    print((command.json ? oneLine(monitorObject(line)) : std::move(text)) + '\n');
  }
}

/// What a line of an answer says: text, or one value.
std::string pieceIn(Json const& line) {
  if (auto const text = line.find("text"); text != line.end()) return text->get<std::string>();
  auto const value = line.find("explanation");
  return value == line.end() ? std::string() : value->dump(2) + '\n';
}

void printAnswer(AnswerLines& lines) {
  for (Json line; lines.next(line);) print(pieceIn(line));
}

std::string answerText(ControlCommand const& command) {
  AnswerLines lines(command.socket, command.request);
  if (asksForLists(command.request)) return shownText(command, lines);
  std::string text;
  for (Json line; lines.next(line);) text += pieceIn(line);
  return text;
}

/// Asks again and again until nobody reads.
void watch(ControlCommand const& command) {
  bool const isTerminal = isatty(STDOUT_FILENO) == 1;
  for (pollfd reader{STDOUT_FILENO, 0, 0}; reader.revents == 0;) {
    std::string const text = answerText(command);
    print(isTerminal ? redrawn(text) : text + '\n');
    poll(&reader, 1, static_cast<int>(command.interval->count()));
  }
}

void report(ControlCommand command) {
  ReportFile file(command.reportFile, {});
  ReportData data;
  data.subject = command.socket;
  command.request.command = "show";
  auto const take = [&](char const* list) {
    command.request.what = list;
    AnswerLines lines(command.socket, command.request);
    addList(data, list, documentIn(lines));
  };
  for (char const* const list : reportLists) take(list);
  take(forwardingList);
  data.history = outlook(data);
  file.write(data);
}

void run(ControlCommand& command) {
  if (command.request.command == "report") {
    report(command);
    return;
  }
  command.request.text = !command.json;
  if (command.interval) {
    watch(command);
    return;
  }
  AnswerLines lines(command.socket, command.request);
  if (asksForLists(command.request))
    print(shownText(command, lines));
  else if (command.request.command == "monitor")
    monitor(command, lines);
  else
    printAnswer(lines);
}

void run(Information const& information) {
  print(information.text);
}

int fail(std::exception const& error, int status) {
  std::cerr << "igmpsnoopctl: " << onOneLine(error.what()) << '\n';
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that went away is told by the write that fails
  try {
    auto commandLine = parseControlCommandLine(argc, argv);
    std::visit([](auto& command) { run(command); }, commandLine);
    return done;
  } catch (WrongUsage const& error) {
    return fail(error, wrongUsage);
  } catch (std::exception const& error) {
    return fail(error, couldNot);
  }
}
