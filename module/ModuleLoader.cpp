#include "module/ModuleLoader.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// "./" + the name in the locale's multibyte form + ".so", in a 256-byte buffer.
// The name part is bounded so that the suffix and terminator always fit.
void BuildModuleFileName(tagREFString module, char (&file)[256]) {
    constexpr size_t kMaxNameBytes = sizeof file - 2 - 4;  // "./" and ".so\0"
    file[0] = '.';
    file[1] = '/';
    size_t written = 0;
    if (module.length > 0 && module.text) {
        std::wstring name(module.text, static_cast<size_t>(module.length));
        size_t limit = std::min(kMaxNameBytes, static_cast<size_t>(module.length) * MB_CUR_MAX);
        std::mbstate_t state{};
        const wchar_t* source = name.c_str();
        written = std::wcsrtombs(file + 2, &source, limit, &state);
        if (written == static_cast<size_t>(-1)) written = 0;  // unconvertible name
    }
    std::memcpy(file + 2 + written, ".so", 4);
}

}  // namespace

ModuleCreateFunction MODULELoadEntry(tagREFString module) {
    char file[256];
    BuildModuleFileName(module, file);
    void* library = dlopen(file, RTLD_NOW);
    if (!library) {
        const char* reason = dlerror();
        std::printf("Module not available %s, error %s\n", file, reason ? reason : "");
        std::fflush(stdout);
        dlerror();
        return nullptr;
    }
    // The library stays loaded for the life of the process.
    return reinterpret_cast<ModuleCreateFunction>(dlsym(library, "CreateFunction"));
}

CreateInstanceFunction MODULECreateFunction(tagREFString module, tagREFString className) {
    ModuleCreateFunction entry = MODULELoadEntry(module);
    if (!entry) return nullptr;
    void* creator = nullptr;
    entry(className.length, className.text, &creator);
    return reinterpret_cast<CreateInstanceFunction>(creator);
}

void* CreateObject(tagREFString className, const IID* iid) {
    SmartPtr<IComponentCollection> collection = SmartPtr<IComponentCollection>::Adopt(GLOBALComponents());
    if (!collection) return nullptr;
    void* object = nullptr;
    collection->CreateObject(className, iid, &object);
    return object;
}
