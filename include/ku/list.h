/* Placeholder: this family's declarations are being written. */
#ifndef KU_LIST_H
#define KU_LIST_H

#include "ku/export.h"

#endif /* KU_LIST_H */
