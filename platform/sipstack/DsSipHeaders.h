#pragma once

// Every header class.
#include "sipstack/DsSipAddressHeaders.h"
#include "sipstack/DsSipHeader.h"
#include "sipstack/DsSipValueHeaders.h"
