// The expressions of the conditional requests (IfBegin, ElseIf): numbers,
// quoted strings, variables ($Frame, $user:name, also written ${...} and
// $(...)), defined(variable), true and false, arithmetic (+ - * /),
// comparisons (== != < > <= >=), glob matches (=~), && || ! and
// parentheses.
#ifndef TRACERY_RIB_CONDITION_EXPRESSION_H
#define TRACERY_RIB_CONDITION_EXPRESSION_H

#include <functional>
#include <string>

struct ConditionValue {
    bool is_string = false;
    std::string text;
    double number = 0;
};

// Finds a variable by its name as written after "$" ("Frame", "user:pass");
// false when it is not defined.
typedef std::function<bool(const std::string& name, ConditionValue* value)> ConditionLookup;

enum class ConditionResult { False, True, Malformed };

// Evaluates text. A malformed expression leaves a description of the fault
// in *error. An undefined variable reads as the empty string.
ConditionResult evaluate_condition(const std::string& text, const ConditionLookup& lookup,
                                   std::string* error);

// Glob match of text against pattern: "*" any run, "?" any character,
// "[...]" a set (with ranges, "!" or "^" to negate), "\" takes the next
// character literally.
bool glob_match(const char* pattern, const char* text);

#endif  // TRACERY_RIB_CONDITION_EXPRESSION_H
