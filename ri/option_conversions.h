// Conversions shared by the option record and the option procedures.
#ifndef TRACERY_RI_OPTION_CONVERSIONS_H
#define TRACERY_RI_OPTION_CONVERSIONS_H

namespace option_conversions {

// Float to int without undefined behaviour: NaN gives 0, values beyond the
// int range give its ends.
int to_int(double v);

}  // namespace option_conversions

#endif  // TRACERY_RI_OPTION_CONVERSIONS_H
