/* Placeholder: this family's declarations are being written. */
#ifndef KU_PLUGIN_H
#define KU_PLUGIN_H

#include "ku/export.h"

#endif /* KU_PLUGIN_H */
