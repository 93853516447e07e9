# End-to-end tests of the kvaudio tool: they run the built binary on files they make themselves.
find_package(nlohmann_json 3 REQUIRED)
target_link_libraries(cli_tests PRIVATE nlohmann_json::nlohmann_json)
# The tools directory is added after the tests, so the option (not the target) is tested here.
if(KVAUDIO_BUILD_TOOLS)
  add_dependencies(cli_tests kvaudio)
  target_compile_definitions(cli_tests PRIVATE KVAUDIO_CLI="$<TARGET_FILE:kvaudio>")
endif()
find_program(KVAUDIO_RSVG_CONVERT rsvg-convert)
if(KVAUDIO_RSVG_CONVERT)
  target_compile_definitions(cli_tests PRIVATE KVAUDIO_RSVG="${KVAUDIO_RSVG_CONVERT}")
endif()
# The tool's frame-rate and timecode arithmetic is also tested directly.
target_sources(cli_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/kvaudio/timebase.cpp)
target_include_directories(cli_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/kvaudio)
# The HTML reports are opened in headless Chromium when it is installed.
find_program(KVAUDIO_CHROMIUM NAMES chromium chromium-browser)
if(KVAUDIO_CHROMIUM)
  target_compile_definitions(cli_tests PRIVATE KVAUDIO_CHROMIUM="${KVAUDIO_CHROMIUM}")
endif()
