# Warnings, hardening and sanitizers of every target of this project; nothing of it reaches a consumer.

add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Werror
  $<$<COMPILE_LANGUAGE:CXX>:-Wconversion>
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:Clang>>:-Wthread-safety>)
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})

if(HBADISC_SANITIZE)
  target_compile_options(project_options INTERFACE -fsanitize=${HBADISC_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  target_link_options(project_options INTERFACE -fsanitize=${HBADISC_SANITIZE})
else()
  target_compile_options(project_options INTERFACE -fstack-protector-strong
                                                   $<$<CONFIG:Release,RelWithDebInfo>:-D_FORTIFY_SOURCE=2>)
  # A symbol that no library provides fails the build, not the first call. (A sanitizer's runtime is only in the program.)
  target_link_options(project_options INTERFACE -Wl,-z,relro,-z,now -Wl,-z,defs)
endif()
# The containers' own checks, where nobody waits for the result.
target_compile_definitions(project_options INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
