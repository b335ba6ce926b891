// Moved to common/text_copy.h; kept only for the includes not yet switched over.
#pragma once

#include "common/text_copy.h"
