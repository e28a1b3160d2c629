# Man pages, by help2man from the command's own help, and completions, which the command prints from its
# own table of options. Both are made right after the command is linked: a build of `orvel_cli` alone can be
# installed. A command for another machine cannot be asked.
if(CMAKE_CROSSCOMPILING)
  return()
endif()
set(_man "${CMAKE_CURRENT_BINARY_DIR}/man")
set(_completions "${CMAKE_CURRENT_BINARY_DIR}/completions")
file(MAKE_DIRECTORY "${_man}" "${_completions}")

# orvel_manual(PAGE DESCRIPTION [COMMAND])
function(orvel_manual page description)
  list(JOIN ARGN " " _command)
  string(STRIP "${_command} --help" _help)
  add_custom_command(
    TARGET orvel_cli POST_BUILD
    COMMAND "${ORVEL_HELP2MAN}" --no-info --no-discard-stderr "--help-option=${_help}" "--name=${description}"
            "--source=ORVEL ${PROJECT_VERSION}" "--manual=ORVEL" "--include=${PROJECT_SOURCE_DIR}/cmake/orvel.h2m"
            "--output=${_man}/${page}.1" $<TARGET_FILE:orvel_cli>
    VERBATIM)
  install(FILES "${_man}/${page}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT orvel)
endfunction()
orvel_manual(orvel "remove ambient noise from speech, detect voice activity")
orvel_manual(orvel-clean "remove ambient noise from recordings and streams" clean)
orvel_manual(orvel-vad "list the stretches with speech" vad)
orvel_manual(orvel-report "show and play a recording before and after" report)
orvel_manual(orvel-info "show what a model or weight file holds" info)
orvel_manual(orvel-models "list the installed models" models)
orvel_manual(orvel-keys "list the tuning keys" keys)
orvel_manual(orvel-completion "print a shell's completions" completion)

# orvel_completion(SHELL FILE FOLDER)
function(orvel_completion shell file folder)
  add_custom_command(TARGET orvel_cli POST_BUILD COMMAND orvel_cli completion ${shell} > "${_completions}/${file}")
  install(FILES "${_completions}/${file}" DESTINATION "${CMAKE_INSTALL_DATADIR}/${folder}" COMPONENT orvel)
endfunction()
orvel_completion(bash orvel bash-completion/completions)
orvel_completion(zsh _orvel zsh/vendor-completions)
orvel_completion(fish orvel.fish fish/vendor_completions.d)
