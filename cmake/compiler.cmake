# How everything is compiled: the language, the warnings, the sanitizers, coverage.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O3 -DNDEBUG")

find_package(Threads REQUIRED)
link_libraries(Threads::Threads)

if(VELMORA_SANITIZE)
  # Enough for reports with lines, in half the time to compile.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
  # Every translation unit, the tests included, or the reports have holes.
  add_compile_options(-fsanitize=${VELMORA_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELMORA_SANITIZE})
endif()

if(VELMORA_FUZZ)
  # The fuzzers steer by the branches that the engine takes.
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

function(velmora_warnings target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${VELMORA_WERROR}>:-Werror>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # gcc 12 warns of overlap inside std::string where there is none (its bug 105651).
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND VELMORA_SANITIZE)
    # The sanitizers' own code in the standard library's headers sets the first one off, and keeps
    # gcc from seeing that a short text has no memory to be freed.
    target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized -Wno-free-nonheap-object)
  endif()
endfunction()

if(VELMORA_COVERAGE)
  add_link_options(--coverage)
endif()

function(velmora_count_coverage target)
  if(VELMORA_COVERAGE)
    # Atomic counters: the tests run several threads, and several processes, over one set of files.
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
  endif()
endfunction()
