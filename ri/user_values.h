// Values of Option "user" and Attribute "user": named strings and numbers
// that the conditional requests (IfBegin, ElseIf) read as $user:name.
#ifndef TRACERY_RI_USER_VALUES_H
#define TRACERY_RI_USER_VALUES_H

#include <string>

#include "ri/ri.h"

struct UserValue {
    bool is_string = false;
    std::string text;   // a string value
    double number = 0;  // a number (the first of an array)
};

// Stores each parameter by its declaration (inline or declared); values of
// other types, and names past the table's bound, are reported and dropped.
void set_user_options(RtInt n, RtToken tokens[], RtPointer values[]);
void set_user_attributes(RtInt n, RtToken tokens[], RtPointer values[]);

// Attribute values follow the attribute blocks.
void user_attributes_push();
void user_attributes_pop();

// The attribute value of that name in the innermost block that set one,
// else the option value; false when neither exists.
bool find_user_value(const std::string& name, UserValue* out);

// Forgets every value (at the start of each run of the interface).
void clear_user_values();

#endif  // TRACERY_RI_USER_VALUES_H
