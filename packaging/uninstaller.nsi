; The uninstaller, a program of its own: one that NSIS makes goes on in a copy of
; itself, and so can neither be waited for nor tell how it has ended.
; packaging/installer.py runs makensis with what installer.nsh asks for.
!include installer.nsh

VIAddVersionKey "FileDescription" "Uninstaller of ${PRODUCT}"
Caption "${PRODUCT}: uninstall"
AutoCloseWindow true
Page instfiles

!define CLEANER_READY "Global\KOVAServerCleanerReady"

Function .onInit
  SetRegView 64
  SetOutPath "$TEMP"
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/CLEAN=" $Folder
  ${IfNot} ${Errors}
    Call CleanUp
    Quit
  ${EndIf}
  StrCpy $Folder $EXEDIR
  Call OpenLog
  Call RequireAdministrator
  Call RequireToBeAlone
  Call RefuseIfAnyUsed
  MessageBox MB_YESNO|MB_ICONQUESTION "Remove ${PRODUCT} from $Folder?" \
    /SD IDYES IDYES agreed
  SetErrorLevel 1
  Quit
agreed:
  InitPluginsDir
FunctionEnd

!macro DeleteKeyIfEmpty KEY
  DeleteRegKey /ifnosubkeys /ifnovalues HKLM "${KEY}"
!macroend

; What the server, not setup, has left on the machine.
Function Purge
  DeleteRegKey /ifnosubkeys HKLM "${EVENT_LOG_KEY}\Application\${SERVER_LOGGER}"
  DeleteRegValue HKLM "${MASKS_KEY}" "${SERVER_LOGGER}"
  !insertmacro DeleteKeyIfEmpty "${MASKS_KEY}"
  ReadEnvStr $0 COMPUTERNAME
  StrCpy $1 "${DRIVERS_KEY}\Network\@$0"
  DeleteRegValue HKLM $1 "TCP Enabled"
  DeleteRegValue HKLM $1 "KOVA Server Port"
  DeleteRegValue HKLM $1 "Network Communication"
  DeleteRegValue HKLM $1 "Network Bidirectional"
  !insertmacro DeleteKeyIfEmpty $1
  !insertmacro DeleteKeyIfEmpty "${DRIVERS_KEY}\Network"
  !insertmacro DeleteKeyIfEmpty "${DRIVERS_KEY}"
  !insertmacro DeleteKeyIfEmpty "SOFTWARE\${MAKER}"
  Delete "C:\Log Files\${SERVER_LOGGER}.txt"
  RMDir "C:\Log Files"
  SetShellVarContext all
  Delete "$APPDATA\Corvane\Drivers\Dump\KOVAServerCrash_????.dmp"
  RMDir "$APPDATA\Corvane\Drivers\Dump"
  RMDir "$APPDATA\Corvane\Drivers"
  RMDir "$APPDATA\Corvane"
FunctionEnd

; Out: $Problem, if a file is left. The list stays then, to begin anew by.
Function RemoveFiles
  StrCpy $R2 "$Folder\${FILE_LIST}"
  StrCpy $R3 "$PLUGINSDIR\list.txt"
  Call CopyOneFile
  StrCpy $0 $Folder
  StrCpy $R4 $R3
  Call DeleteListed
  ${EachFile} $R4
    ${If} ${FileExists} "$Folder\$R1"
    ${AndIf} "$Folder\$R1" != $EXEPATH
      StrCpy $Problem "$Folder\$R1 cannot be removed."
      StrCpy $R2 $R4
      StrCpy $R3 "$Folder\${FILE_LIST}"
      Call CopyOneFile
      ${ExitDo}
    ${EndIf}
  ${EndEachFile}
FunctionEnd

; A program that runs cannot be deleted: a copy of it does that once it has ended.
; The copy is there before, so that no setup can come between.
Function RemoveItself
  GetTempFileName $R3 "$TEMP"
  StrCpy $R2 $EXEPATH
  Call CopyOneFile
  System::Call 'kernel32::CreateEventW(p 0, i 1, i 0, w "${CLEANER_READY}") \
    p .r2'
  Exec '"$R3" /CLEAN=$Folder'
  System::Call 'kernel32::WaitForSingleObject(p r2, i 10000)'
FunctionEnd

; In: $Folder. This is the copy. Windows deletes it at the next start.
Function CleanUp
  System::Call "${CREATE_MUTEX}"
  Pop $1
  System::Call 'kernel32::OpenEventW(i 2, i 0, w "${CLEANER_READY}") p .r1'
  System::Call 'kernel32::SetEvent(p r1)'
  System::Call 'kernel32::CloseHandle(p r1)'
  StrCpy $0 0
  ${DoWhile} ${FileExists} "$Folder\uninstall.exe"
    Delete "$Folder\uninstall.exe"
    Sleep 50
    IntOp $0 $0 + 1
    ${If} $0 = 1000
      ${ExitDo}
    ${EndIf}
  ${Loop}
  RMDir $Folder
  !insertmacro RemoveMakersFolder
  ; MOVEFILE_DELAY_UNTIL_REBOOT
  System::Call 'kernel32::MoveFileExW(w "$EXEPATH", p 0, i 4)'
FunctionEnd

; The demonstration's printer would lead to a library that is gone.
Function RemoveDemo
  ${If} ${FileExists} "$Folder\bin\kovactl.exe"
    nsExec::Exec '"$Folder\bin\kovactl.exe" run --remove-demo'
    Pop $0
    ${If} $0 != 0
      ${Note} "The demonstration printer was not removed (code $0)"
    ${EndIf}
  ${EndIf}
FunctionEnd

Section
  Call Recover
  Call RemoveEarlierLocation
  Call RemoveDemo
  Call RemoveFiles
  ${If} $Problem != ""
    ${Note} "Failed: $Problem"
    Abort "$Problem"
  ${EndIf}
  Call Unregister
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/PURGE" $1
  ${IfNot} ${Errors}
    Call Purge
  ${EndIf}
  Call RemoveItself
  ${Note} "Removed"
  !insertmacro AskForRestartIfNeeded
SectionEnd
