#include "cli/store_loading.h"

#include <cstdio>
#include <exception>
#include <string>

#include "common/localizer.h"

namespace cli {

bool LoadStoreOrReport(StructureStore& store) {
    try {
        store.LoadStructures();
        return true;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kestrel-cli: %s: %s (%s)\n", store.Path().c_str(),
                     Localizer::Text(Localizer::Scope::Ui, "malformed structures file", "fehlerhafte Strukturdatei"),
                     error.what());
        return false;
    }
}

}  // namespace cli
