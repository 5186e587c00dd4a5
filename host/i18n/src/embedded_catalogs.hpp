#pragma once
// The compiled catalogs, linked into fl_i18n by a generated source file.
#include <cstddef>
#include <span>

namespace fl_i18n_detail {

struct EmbeddedCatalog {
    const char* language;
    const unsigned char* data;
    std::size_t size;
};

std::span<const EmbeddedCatalog> embeddedCatalogs();

}  // namespace fl_i18n_detail
