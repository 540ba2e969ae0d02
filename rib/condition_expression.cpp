// Parser and evaluator of the conditions of IfBegin and ElseIf: a recursive
// descent over the text, evaluating as it goes. Values are numbers or
// strings; two values compare as numbers when both read as numbers (a
// string such as '29' included), else as strings.
#include "rib/condition_expression.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Deepest nesting of parentheses and unary operators followed.
constexpr int NESTING_MAX = 200;

class ConditionParser {
  public:
    ConditionParser(const std::string& text, const ConditionLookup& lookup)
        : text_(text), lookup_(lookup) {}

    ConditionValue parse_all() {
        ConditionValue value = parse_or();
        skip_blanks();
        if (pos_ < text_.size()) fail("unexpected \"" + text_.substr(pos_) + "\"");
        return value;
    }
    const std::string& error() const { return error_; }

  private:
    // The first fault is kept; the rest of the text is given up, so that
    // every rule returns at once.
    void fail(const std::string& message) {
        if (error_.empty()) error_ = message;
        pos_ = text_.size();
    }
    bool failed() const { return !error_.empty(); }

    void skip_blanks() {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
    }
    // Consumes op (after blanks) when it is next.
    bool take(const char* op) {
        skip_blanks();
        size_t length = std::strlen(op);
        if (pos_ >= text_.size() || text_.compare(pos_, length, op) != 0) return false;
        pos_ += length;
        return true;
    }
    bool next_is(const char* op) {
        skip_blanks();
        return pos_ < text_.size() && text_.compare(pos_, std::strlen(op), op) == 0;
    }

    struct Depth {
        explicit Depth(ConditionParser& p) : parser(p) {
            if (++parser.depth_ > NESTING_MAX) parser.fail("nested too deeply");
        }
        ~Depth() { --parser.depth_; }
        ConditionParser& parser;
    };

    ConditionValue parse_or() {
        ConditionValue left = parse_and();
        while (take("||")) {
            ConditionValue right = parse_and();
            left = boolean(truth(left) || truth(right));
        }
        return left;
    }

    ConditionValue parse_and() {
        ConditionValue left = parse_comparison();
        while (take("&&")) {
            ConditionValue right = parse_comparison();
            left = boolean(truth(left) && truth(right));
        }
        return left;
    }

    ConditionValue parse_comparison() {
        ConditionValue left = parse_sum();
        static const char* const ops[] = {"==", "!=", "<=", ">=", "=~", "<", ">"};
        for (const char* op : ops) {
            if (take(op)) return boolean(compare(op, left, parse_sum()));
        }
        return left;
    }

    ConditionValue parse_sum() {
        ConditionValue left = parse_product();
        for (;;) {
            if (take("+")) {
                left = number(as_number(left) + as_number(parse_product()));
            } else if (!next_is("-")) {
                return left;
            } else {
                take("-");
                left = number(as_number(left) - as_number(parse_product()));
            }
        }
    }

    ConditionValue parse_product() {
        ConditionValue left = parse_unary();
        for (;;) {
            if (take("*")) {
                left = number(as_number(left) * as_number(parse_unary()));
            } else if (take("/")) {
                double divisor = as_number(parse_unary());
                if (divisor == 0) {
                    fail("division by zero");
                    return left;
                }
                left = number(as_number(left) / divisor);
            } else {
                return left;
            }
        }
    }

    ConditionValue parse_unary() {
        Depth depth(*this);
        if (failed()) return {};
        if (take("!")) return boolean(!truth(parse_unary()));
        if (take("-")) return number(-as_number(parse_unary()));
        return parse_primary();
    }

    ConditionValue parse_primary() {
        skip_blanks();
        if (pos_ >= text_.size()) {
            fail("operand missing at the end");
            return {};
        }
        const char c = text_[pos_];
        if (c == '(') {
            ++pos_;
            ConditionValue inner = parse_or();
            if (!take(")")) fail("\")\" missing");
            return inner;
        }
        if (c == '\'' || c == '"') return parse_string(c);
        if (c == '$') return variable_value(parse_variable_name());
        if (std::isdigit(static_cast<unsigned char>(c)) || c == '.') return parse_number();
        if (std::isalpha(static_cast<unsigned char>(c))) return parse_word();
        fail(std::string("unexpected \"") + c + "\"");
        return {};
    }

    ConditionValue parse_string(char quote) {
        ++pos_;
        ConditionValue value;
        value.is_string = true;
        while (pos_ < text_.size() && text_[pos_] != quote) {
            if (text_[pos_] == '\\' && pos_ + 1 < text_.size()) ++pos_;
            value.text += text_[pos_++];
        }
        if (pos_ >= text_.size()) {
            fail("string not closed");
            return {};
        }
        ++pos_;
        return value;
    }

    ConditionValue parse_number() {
        const char* start = text_.c_str() + pos_;
        char* end = nullptr;
        double v = std::strtod(start, &end);
        if (end == start) {
            fail("bad number");
            return {};
        }
        pos_ += static_cast<size_t>(end - start);
        return number(v);
    }

    std::string parse_name() {
        size_t start = pos_;
        while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) ||
                                       text_[pos_] == '_' || text_[pos_] == ':')) {
            ++pos_;
        }
        if (pos_ == start) fail("name expected");
        return text_.substr(start, pos_ - start);
    }

    // "$name", "${name}" or "$(name)"; the "$" is next.
    std::string parse_variable_name() {
        ++pos_;
        if (pos_ < text_.size() && (text_[pos_] == '{' || text_[pos_] == '(')) {
            const char close = text_[pos_] == '{' ? '}' : ')';
            ++pos_;
            std::string name = parse_name();
            if (pos_ >= text_.size() || text_[pos_] != close) {
                fail("variable not closed");
                return name;
            }
            ++pos_;
            return name;
        }
        return parse_name();
    }

    ConditionValue variable_value(const std::string& name) {
        ConditionValue value;
        value.is_string = true;  // undefined: the empty string
        if (lookup_) lookup_(name, &value);
        return value;
    }

    // true, false, or defined(variable) with or without its "$".
    ConditionValue parse_word() {
        std::string word = parse_name();
        if (word == "true") return boolean(true);
        if (word == "false") return boolean(false);
        if (word != "defined") {
            fail("unknown word \"" + word + "\"");
            return {};
        }
        if (!take("(")) {
            fail("\"(\" missing after defined");
            return {};
        }
        skip_blanks();
        std::string name =
            pos_ < text_.size() && text_[pos_] == '$' ? parse_variable_name() : parse_name();
        if (!take(")")) fail("\")\" missing after defined(" + name);
        ConditionValue ignored;
        return boolean(lookup_ && lookup_(name, &ignored));
    }

    // ---- values ----

    static ConditionValue number(double v) {
        ConditionValue value;
        value.number = v;
        return value;
    }
    static ConditionValue boolean(bool b) { return number(b ? 1 : 0); }

    static bool truth(const ConditionValue& v) {
        return v.is_string ? !v.text.empty() : v.number != 0;
    }

    // The number a value reads as, if it reads as one entirely.
    static bool numeric(const ConditionValue& v, double* out) {
        if (!v.is_string) {
            *out = v.number;
            return true;
        }
        const char* start = v.text.c_str();
        char* end = nullptr;
        *out = std::strtod(start, &end);
        if (end == start) return false;
        while (std::isspace(static_cast<unsigned char>(*end))) ++end;
        return *end == '\0';
    }

    double as_number(const ConditionValue& v) {
        double n;
        if (numeric(v, &n)) return n;
        fail("\"" + v.text + "\" is not a number");
        return 0;
    }

    static std::string as_text(const ConditionValue& v) {
        if (v.is_string) return v.text;
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%g", v.number);
        return buffer;
    }

    static bool compare(const std::string& op, const ConditionValue& a, const ConditionValue& b) {
        if (op == "=~") return glob_match(as_text(b).c_str(), as_text(a).c_str());
        double x, y;
        int order;
        if (numeric(a, &x) && numeric(b, &y)) {
            order = x < y ? -1 : (x > y ? 1 : 0);
        } else {
            order = as_text(a).compare(as_text(b));
        }
        if (op == "==") return order == 0;
        if (op == "!=") return order != 0;
        if (op == "<") return order < 0;
        if (op == ">") return order > 0;
        if (op == "<=") return order <= 0;
        return order >= 0;
    }

    const std::string& text_;
    const ConditionLookup& lookup_;
    size_t pos_ = 0;
    int depth_ = 0;
    std::string error_;
};

// One set "[...]" at pattern; advances pattern past it. A set that is not
// closed matches the "[" itself.
bool match_set(const char** pattern, char c) {
    const char* p = *pattern + 1;
    bool negate = *p == '!' || *p == '^';
    if (negate) ++p;
    bool matched = false;
    bool first = true;
    while (*p && (*p != ']' || first)) {
        first = false;
        char low = *p;
        if (low == '\\' && p[1]) low = *++p;
        char high = low;
        if (p[1] == '-' && p[2] && p[2] != ']') {
            high = p[2];
            p += 2;
        }
        if (low <= c && c <= high) matched = true;
        ++p;
    }
    if (*p != ']') {
        ++*pattern;
        return c == '[';
    }
    *pattern = p + 1;
    return matched != negate;
}

}  // namespace

// Iterative with one backtracking point for the last "*", so that the time
// stays proportional to pattern times text.
bool glob_match(const char* pattern, const char* text) {
    const char* star = nullptr;
    const char* star_text = nullptr;
    while (*text) {
        const char* p = pattern;
        bool ok = false;
        if (*p == '*') {
            star = ++pattern;
            star_text = text;
            continue;
        }
        if (*p == '?') {
            ok = true;
            ++p;
        } else if (*p == '[') {
            ok = match_set(&p, *text);
        } else if (*p) {
            if (*p == '\\' && p[1]) ++p;
            ok = *p == *text;
            ++p;
        }
        if (ok) {
            pattern = p;
            ++text;
        } else if (star) {
            pattern = star;
            text = ++star_text;
        } else {
            return false;
        }
    }
    while (*pattern == '*') ++pattern;
    return *pattern == '\0';
}

ConditionResult evaluate_condition(const std::string& text, const ConditionLookup& lookup,
                                   std::string* error) {
    ConditionParser parser(text, lookup);
    ConditionValue value = parser.parse_all();
    if (!parser.error().empty()) {
        if (error) *error = parser.error();
        return ConditionResult::Malformed;
    }
    bool truth = value.is_string ? !value.text.empty() : value.number != 0;
    return truth ? ConditionResult::True : ConditionResult::False;
}
