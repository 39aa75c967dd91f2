/* Placeholder: this family's declarations are being written. */
#ifndef KU_CIRCLE_BUF_H
#define KU_CIRCLE_BUF_H

#include "ku/export.h"

#endif /* KU_CIRCLE_BUF_H */
