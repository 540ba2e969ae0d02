// Tests of the shader registry: lookup counting and shadowing, parameter
// offsets by token, and the statistics report.
#include "support/shaders.h"

#include <gtest/gtest.h>

#include <string>

#include "support/declarations.h"
#include "support/memory.h"

namespace {

TEST(ShaderRegistry, FindCountsRequestsAndNewestShadows) {
    int requests = Shader::shader_requests;
    EXPECT_EQ(FindShader("shadertest_missing"), nullptr);
    Shader* older = DeclareShader("shadertest_plastic", nullptr, nullptr, nullptr, 7);
    Shader* newer = DeclareShader("shadertest_plastic", nullptr, nullptr, new char[8], 0);
    std::string name = "shadertest_plastic";
    EXPECT_EQ(FindShader(name.c_str()), newer);
    delete newer;  // unlinked: the older one shows again
    EXPECT_EQ(FindShader("shadertest_plastic"), older);
    delete older;
    EXPECT_EQ(Shader::shader_requests, requests + 3);
}

TEST(ShaderRegistry, ParamsGiveSizesAndOffsetsByToken) {
    RtToken tint = NewToken("shadertest_tint");
    auto* params = static_cast<PARAM_INFO*>(myalloc(4 * sizeof(PARAM_INFO)));
    params[0] = {NewToken("Kd"), DECL_FLOAT, 0, 1, 4};
    params[1] = {tint, DECL_COLOR, 0, 2, 24};
    params[2] = {NewToken("shadertest_odd"), 200, 0, 3, 5};  // unknown type sizes nothing
    params[3] = {nullptr, 0, 0, 0, 0};
    Shader* s = DeclareShader("shadertest_params", nullptr, params, nullptr, 0);
    EXPECT_EQ(s->paramsize, 4 + 2 * 12);

    int offset = -1;
    int type = -1;
    EXPECT_EQ(s->getparam(tint, offset, type), 1);
    EXPECT_EQ(offset, 4);
    EXPECT_EQ(type, DECL_COLOR);
    std::string copy = "Kd";  // equal text, not the token
    EXPECT_EQ(s->getparam(copy.c_str(), offset, type), 0);
    EXPECT_EQ(offset, 33);
    delete s;
}

TEST(ShaderRegistry, PrintstatsFormat) {
    int requests = Shader::shader_requests;
    Shader::shader_requests = 3;
    Shader::instances = 2;
    Shader::loadmem[0] = 100;
    testing::internal::CaptureStderr();
    Shader::printstats();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Shaders:  3 requested, 0 separate shaders loaded, 2 instances\n"
              "   prototype memory: 100 bytes requested, 0 peak, 0 current\n"
              "   instance memory: 0 bytes requested, 0 peak, 0 current\n");
    Shader::shader_requests = requests;
    Shader::instances = 0;
    Shader::loadmem[0] = 0;
}

}  // namespace
