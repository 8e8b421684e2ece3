// JSON values, reading and writing.
#pragma once

#include "json_spirit/reader.h"
#include "json_spirit/value.h"
#include "json_spirit/writer.h"
