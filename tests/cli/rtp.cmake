# The RTP interop tests run ffmpeg (a test-only package) on the loopback interface.
find_program(KVAUDIO_FFMPEG ffmpeg)
if(KVAUDIO_FFMPEG)
  target_compile_definitions(cli_tests PRIVATE KVAUDIO_FFMPEG="${KVAUDIO_FFMPEG}")
endif()
