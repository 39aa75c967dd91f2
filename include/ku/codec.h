/* Placeholder: this family's declarations are being written. */
#ifndef KU_CODEC_H
#define KU_CODEC_H

#include "ku/export.h"

#endif /* KU_CODEC_H */
