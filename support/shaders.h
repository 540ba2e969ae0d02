// The shader registry: shader prototypes (a named shading function with its
// parameter description and default values) found by name, and the counters
// of prototypes and instances with their statistics report. Nothing in the
// previewer registers a shader; the registry is there for completeness.
#ifndef TRACERY_SUPPORT_SHADERS_H
#define TRACERY_SUPPORT_SHADERS_H

// One parameter of a shader; an array of them ends with a null name.
struct PARAM_INFO {
    const char* name;    // interned token, compared by pointer
    unsigned char type;  // declaration type code
    unsigned char unused;
    short count;  // array length
    int size;     // bytes the parameter occupies in a value block
};

typedef void (*ShaderFunction)();

class Shader {
  public:
    explicit Shader(const char* name);
    // Releases the storage the prototype owns (params with myfree, defaults
    // and the loader's blocks below), lowers the current prototype memory by
    // memsize, and unlinks the prototype from shader_list.
    ~Shader();
    Shader(const Shader&) = delete;
    Shader& operator=(const Shader&) = delete;

    // offset receives the bytes of the parameters before token; type its
    // type code. Returns 1 if token (by pointer) is a parameter, else 0, with
    // offset then holding the total.
    int getparam(const char* token, int& offset, int& type);
    static void printstats();

    Shader* next;
    const char* name;
    int reserved;
    long extra;          // kept for the caller, never read
    PARAM_INFO* params;  // from myalloc, owned
    int paramsize;       // sum of param_sizes[type] * count over params
    void* defaults;      // default values, owned: a block from new char[]
    ShaderFunction function;

    // Filled only by a shader loader (none is built in); zero otherwise.
    void* code;          // compiled code block, from myalloc
    char* filename;      // file it was loaded from, from new char[]
    float* constants;    // constant table, from new float[]
    char* string_table;  // string constants, from new char[]
    int memsize;         // bytes counted in loadmem for this prototype

    static Shader* shader_list;  // newest first
    static int shader_requests;  // FindShader calls
    static int shader_loads;
    static int instances;
    // bytes requested, peak, current
    static int loadmem[3];
    static int instancemem[3];
};

// A new prototype at the head of shader_list; a shader of the same name is
// shadowed, not replaced. params (null-name terminated) and defaults become
// the prototype's.
Shader* DeclareShader(const char* name, ShaderFunction fn, PARAM_INFO* params, void* defaults,
                      long extra);
// The newest prototype of that name, else what read_slo loads.
Shader* FindShader(const char* name);
// Compiled shader files are not loaded by this program: always null.
Shader* read_slo(const char* name);

#endif  // TRACERY_SUPPORT_SHADERS_H
