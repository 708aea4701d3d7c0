// What a check found, line by line. Filled by the parts of the check, shown by the console. Texts
// are in the ANSI code page and hold no secret.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace check {

enum class Part { Settings, Lists, Templates, Directory, Mail, Folder };
enum class Level { Ok, Note, Fault };

struct Finding {
  Part part = Part::Settings;
  Level level = Level::Ok;
  std::string subject;  // the file with its line, the value or the server
  std::string text;     // what about it
  std::string cure;     // what to do; of a fault always there
};

class Report {
 public:
  // Of which part the lines are that follow.
  void begin(Part part) { part_ = part; }

  void ok(std::string subject, std::string text) {
    add(Level::Ok, std::move(subject), std::move(text), {});
  }
  void note(std::string subject, std::string text, std::string cure = {}) {
    add(Level::Note, std::move(subject), std::move(text), std::move(cure));
  }
  void fault(std::string subject, std::string text, std::string cure) {
    add(Level::Fault, std::move(subject), std::move(text), std::move(cure));
  }

  const std::vector<Finding>& findings() const { return findings_; }

 private:
  void add(Level level, std::string subject, std::string text, std::string cure) {
    findings_.push_back({part_, level, std::move(subject), std::move(text), std::move(cure)});
  }

  Part part_ = Part::Settings;
  std::vector<Finding> findings_;
};

}  // namespace check
