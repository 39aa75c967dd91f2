/* Placeholder: this family's declarations are being written. */
#ifndef KU_HTTPS_H
#define KU_HTTPS_H

#include "ku/export.h"

#endif /* KU_HTTPS_H */
