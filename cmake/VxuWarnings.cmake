# Compiler settings shared by every target of the project.
set(VXU_WARNINGS -Wall -Wextra -Wshadow -Wformat=2 -Wundef -Wcast-align)
if(VXU_WERROR)
  list(APPEND VXU_WARNINGS -Werror)
endif()

# VXU_SANITIZE: OFF, ON or "address" (AddressSanitizer with
# UndefinedBehaviorSanitizer), or "thread" (ThreadSanitizer).
set(VXU_SANITIZER_FLAGS "")
if(VXU_SANITIZE STREQUAL "thread")
  set(VXU_SANITIZER_FLAGS -fsanitize=thread -fno-omit-frame-pointer)
elseif(VXU_SANITIZE)
  set(VXU_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
endif()

# VXU_COVERAGE: instrument for gcov (line and branch coverage).
if(VXU_COVERAGE)
  list(APPEND VXU_SANITIZER_FLAGS --coverage -O0 -fno-inline)
endif()

# Applies the project's warnings (and sanitizers, when enabled) to a target.
function(vxu_target_defaults target)
  target_compile_options(${target} PRIVATE ${VXU_WARNINGS} ${VXU_SANITIZER_FLAGS})
  target_link_options(${target} PRIVATE ${VXU_SANITIZER_FLAGS})
endfunction()
