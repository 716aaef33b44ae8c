#pragma once
// What the form of a question in words asks for, beside its words: a yes-or-no question wants a
// predicate, a question about an error wants the error's type.

#include <string>
#include <string_view>

namespace orvane_tamsel::workers {

struct QuestionForm {
  bool yes_no = false;  // opens with an auxiliary verb: "is a path absolute", "can the user ..."
  bool error = false;   // speaks of an error or exception: "error when a key is missing"
  // Says what went wrong without the word error: "the date cannot be parsed", "invalid netmask".
  bool failure = false;
};

QuestionForm question_form(std::string_view query);

// A name that reads as a yes-or-no answer: a predicate verb, then a word break (is_valid,
// hasPrefix, IsDigit, must_update).
bool predicate_name(std::string_view name);

// A type named as an error (ValueError, PathError, ImproperlyConfiguredException, UserWarning).
bool error_type_name(std::string_view name);

// A type named as an error, or a class whose header lists such a base: Python's exceptions are
// often named for what went wrong (QueueEmpty(Exception), PermissionDenied(Exception)).
bool error_type(std::string_view name, std::string_view signature);

}  // namespace orvane_tamsel::workers
