// Shader prototypes: declaration, lookup by name with shadowing, parameter
// offsets, and the registry's statistics report.
#include "support/shaders.h"

#include <cstdio>
#include <cstring>

#include "support/declarations.h"
#include "support/memory.h"

Shader* Shader::shader_list = nullptr;
int Shader::shader_requests = 0;
int Shader::shader_loads = 0;
int Shader::instances = 0;
int Shader::loadmem[3] = {0, 0, 0};
int Shader::instancemem[3] = {0, 0, 0};

Shader::Shader(const char* shader_name)
    : next(nullptr),
      name(NewToken(shader_name)),
      reserved(0),
      extra(0),
      params(nullptr),
      paramsize(0),
      defaults(nullptr),
      function(nullptr),
      code(nullptr),
      filename(nullptr),
      constants(nullptr),
      string_table(nullptr),
      memsize(0) {}

Shader::~Shader() {
    for (Shader** link = &shader_list; *link != nullptr; link = &(*link)->next) {
        if (*link == this) {
            *link = next;
            break;
        }
    }
    if (params != nullptr) myfree(params);
    delete[] static_cast<char*>(defaults);
    if (code != nullptr) myfree(code);
    delete[] filename;
    delete[] constants;
    delete[] string_table;
    loadmem[2] -= memsize;
}

int Shader::getparam(const char* token, int& offset, int& type) {
    offset = 0;
    if (params == nullptr) return 0;
    for (const PARAM_INFO* p = params; p->name != nullptr; ++p) {
        if (p->name == token) {
            type = p->type;
            return 1;
        }
        offset += p->size;
    }
    return 0;
}

void Shader::printstats() {
    std::fprintf(stderr, "Shaders:  %d requested, %d separate shaders loaded, %d instances\n",
                 shader_requests, shader_loads, instances);
    std::fprintf(stderr, "   prototype memory: %d bytes requested, %d peak, %d current\n",
                 loadmem[0], loadmem[1], loadmem[2]);
    std::fprintf(stderr, "   instance memory: %d bytes requested, %d peak, %d current\n",
                 instancemem[0], instancemem[1], instancemem[2]);
    std::fflush(stderr);
}

namespace {

// Type codes outside the size table count nothing.
int value_bytes(const PARAM_INFO& p) {
    int sizes = static_cast<int>(sizeof(param_sizes) / sizeof(param_sizes[0]));
    if (p.type >= sizes) return 0;
    return param_sizes[p.type] * p.count;
}

}  // namespace

Shader* DeclareShader(const char* name, ShaderFunction fn, PARAM_INFO* params, void* defaults,
                      long extra) {
    Shader* shader = new Shader(name);
    shader->next = Shader::shader_list;
    Shader::shader_list = shader;
    shader->params = params;
    if (params != nullptr) {
        for (const PARAM_INFO* p = params; p->name != nullptr; ++p) {
            shader->paramsize += value_bytes(*p);
        }
    }
    shader->defaults = defaults;
    shader->extra = extra;
    shader->function = fn;
    return shader;
}

Shader* FindShader(const char* name) {
    Shader::shader_requests += 1;
    if (name == nullptr) return nullptr;
    for (Shader* s = Shader::shader_list; s != nullptr; s = s->next) {
        if (s->name != nullptr && std::strcmp(s->name, name) == 0) return s;
    }
    return read_slo(name);
}

Shader* read_slo(const char*) {
    return nullptr;
}
