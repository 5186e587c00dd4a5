#pragma once
// Everything the filesystem core offers, in one include.
#include "quorin/io/filesystem/core/ContentType.hpp"
#include "quorin/io/filesystem/core/Errors.hpp"
#include "quorin/io/filesystem/core/Existence.hpp"
#include "quorin/io/filesystem/core/Identifiers.hpp"
#include "quorin/io/filesystem/core/Links.hpp"
#include "quorin/io/filesystem/core/Log.hpp"
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "quorin/io/filesystem/core/RelativePath.hpp"
#include "quorin/io/filesystem/core/ReplacementRule.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"
