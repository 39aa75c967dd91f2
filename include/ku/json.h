/* Placeholder: this family's declarations are being written. */
#ifndef KU_JSON_H
#define KU_JSON_H

#include "ku/export.h"

#endif /* KU_JSON_H */
