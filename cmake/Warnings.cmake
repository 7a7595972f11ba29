# Project code builds warning-free; generated protobuf code is exempt.
set(QOR_WARNINGS -Wall -Wextra -Werror -Waddress-of-packed-member)

function(qor_warnings target)
  target_compile_options(${target} PRIVATE ${QOR_WARNINGS})
endfunction()
