; The installer. packaging/installer.py runs makensis with:
;   VERSION        of the product, three numbers
;   SIZE_KB        of what is installed
;   FILE_LISTS     a file with the macros InstallFiles and RemoveFiles
;   OUTPUT         the installer to make
;   SIGN_COMMAND   optional: signs the file that is added to it as an argument
Unicode true
; A 64-bit program, which a 32-bit Windows refuses to start.
Target amd64-unicode
SetCompressor zlib
!include LogicLib.nsh
!include FileFunc.nsh
!include "${FILE_LISTS}"

!define PRODUCT "KOVA Server"
!define MAKER "Corvane Tessaly"
!define UNINSTALL_KEY \
  "Software\Microsoft\Windows\CurrentVersion\Uninstall\KOVAServer"
; One value for each source that this installation added, called like it.
!define ADDED_SOURCES_KEY "${UNINSTALL_KEY}\EventSources"
!define EVENT_LOG_KEY "SYSTEM\CurrentControlSet\Services\Eventlog"
!define MESSAGE_LIBRARY "Corvane_EventMessages.dll"
!define DRIVERS_KEY "SOFTWARE\${MAKER}\Drivers"
!define MASKS_KEY "${DRIVERS_KEY}\DebugLogMasks"
!define SERVER_LOGGER "Corvane KOVA Server"

; The exit code of a refusal; nothing has been changed then.
!define REFUSED 2
; The code by which Windows' own installer asks for a restart.
!define RESTART_NEEDED 3010

Name "${PRODUCT}"
OutFile "${OUTPUT}"
InstallDir "$PROGRAMFILES64\${MAKER}\${PRODUCT}"
InstallDirRegKey HKLM "${UNINSTALL_KEY}" "InstallLocation"
RequestExecutionLevel admin
ManifestSupportedOS all
ManifestDPIAware true
ShowInstDetails show
ShowUninstDetails show
BrandingText "${PRODUCT} ${VERSION}"
VIProductVersion "${VERSION}.0"
VIAddVersionKey "CompanyName" "${MAKER}"
VIAddVersionKey "FileDescription" "Installer of ${PRODUCT}"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductName" "${PRODUCT}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" ""

!ifdef SIGN_COMMAND
  !uninstfinalize '${SIGN_COMMAND} "%1"' = 0
!endif

Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

!macro Refuse TEXT
  MessageBox MB_OK|MB_ICONSTOP "${TEXT}" /SD IDOK
  SetErrorLevel ${REFUSED}
  Quit
!macroend

; The manifest asks for these rights, but a program may be started without.
!macro RequireAdministrator
  UserInfo::GetAccountType
  Pop $0
  ${If} $0 != "Admin"
    !insertmacro Refuse "Administrator rights are needed."
  ${EndIf}
!macroend

; A library or program that is loaded cannot be opened for writing.
!macro RefuseIfUsed PATH
  ${If} ${FileExists} "${PATH}"
    ClearErrors
    FileOpen $0 "${PATH}" a
    ${If} ${Errors}
      !insertmacro Refuse "${PATH} is in use. End the program that uses it."
    ${EndIf}
    FileClose $0
  ${EndIf}
!macroend

!macro RefuseIfAnyUsed FOLDER
  !insertmacro RefuseIfUsed "${FOLDER}\bin\KOVAServer.dll"
  !insertmacro RefuseIfUsed "${FOLDER}\bin\kovactl.exe"
  !insertmacro RefuseIfUsed \
    "${FOLDER}\bin\sample-extension\Corvane_V3_NetMon.dll"
!macroend

; Folders go only if nothing is left in them, and only the default one lies in a
; folder that an installation may have made.
!macro RemoveOwnFolder FOLDER
  Delete "${FOLDER}\uninstall.exe"
  RMDir "${FOLDER}"
  ${If} "${FOLDER}" == "$PROGRAMFILES64\${MAKER}\${PRODUCT}"
    RMDir "$PROGRAMFILES64\${MAKER}"
  ${EndIf}
!macroend

!macro AskForRestartIfNeeded
  ${If} ${RebootFlag}
    SetErrorLevel ${RESTART_NEEDED}
  ${EndIf}
!macroend

Function .onInit
  SetRegView 64
  !insertmacro RequireAdministrator
FunctionEnd

; The earlier installation takes back what it added, so that nothing of it is
; taken for somebody else's. _? makes the uninstaller wait and tell its code.
Function RemoveEarlierInstallation
  ReadRegStr $1 HKLM "${UNINSTALL_KEY}" "InstallLocation"
  ${If} $1 == ""
  ${OrIfNot} ${FileExists} "$1\uninstall.exe"
    Return
  ${EndIf}
  DetailPrint "Removing the installation in $1"
  ExecWait '"$1\uninstall.exe" /S _?=$1' $2
  ${If} $2 != 0
  ${AndIf} $2 != ${RESTART_NEEDED}
    !insertmacro Refuse "The installation in $1 cannot be removed; see whether \
it is in use."
  ${EndIf}
  !insertmacro RemoveOwnFolder "$1"
FunctionEnd

; First of all: what an interrupted installation has done can be undone then.
Function RegisterUninstaller
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "${MAKER}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" \
    '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" \
    '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" ${SIZE_KB}
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
FunctionEnd

; A library that is there already is somebody else's and stays as it is.
Function AddMessageLibrary
  ${If} ${FileExists} "$SYSDIR\${MESSAGE_LIBRARY}"
    DetailPrint "$SYSDIR\${MESSAGE_LIBRARY} is there already"
    Return
  ${EndIf}
  ClearErrors
  CopyFiles /SILENT "$INSTDIR\bin\messages\${MESSAGE_LIBRARY}" \
    "$SYSDIR\${MESSAGE_LIBRARY}"
  ${If} ${Errors}
    Abort "$SYSDIR\${MESSAGE_LIBRARY} cannot be written"
  ${EndIf}
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "MessageLibrary" 1
FunctionEnd

; In: $0, the source's name. Out: $1, 1 if it was added. As the server does, in
; the same order; an existing source stays as it is.
Function AddEventSource
  StrCpy $1 0
  ClearErrors
  EnumRegKey $2 HKLM "${EVENT_LOG_KEY}\Application\$0" 0
  ${IfNot} ${Errors}
    Return
  ${EndIf}
  StrCpy $2 "${EVENT_LOG_KEY}\Application\$0"
  WriteRegStr HKLM $2 "EventMessageFile" "$SYSDIR\${MESSAGE_LIBRARY}"
  WriteRegDWORD HKLM $2 "TypesSupported" 7
  WriteRegStr HKLM $2 "CategoryMessageFile" "$SYSDIR\${MESSAGE_LIBRARY}"
  WriteRegDWORD HKLM $2 "CategoryCount" 2
  WriteRegDWORD HKLM "${ADDED_SOURCES_KEY}" $0 1
  StrCpy $1 1
FunctionEnd

; In: $0. For sources other than the server's own; a new one replaces that of
; the same name in the "System" log.
Function AddOtherEventSource
  Call AddEventSource
  ${If} $1 == 1
    DeleteRegKey /ifnosubkeys HKLM "${EVENT_LOG_KEY}\System\$0"
  ${EndIf}
FunctionEnd

Function AddEventSources
  StrCpy $0 "${SERVER_LOGGER}"
  Call AddEventSource
  StrCpy $0 "DispatcherUtil"
  Call AddOtherEventSource
  StrCpy $3 0
  ${Do}
    ClearErrors
    EnumRegValue $0 HKLM "${MASKS_KEY}" $3
    ${If} ${Errors}
    ${OrIf} $0 == ""
      ${Break}
    ${EndIf}
    Call AddOtherEventSource
    IntOp $3 $3 + 1
  ${Loop}
FunctionEnd

Section
  ReadRegStr $1 HKLM "${UNINSTALL_KEY}" "InstallLocation"
  ${If} $1 != ""
    !insertmacro RefuseIfAnyUsed "$1"
  ${EndIf}
  !insertmacro RefuseIfAnyUsed "$INSTDIR"
  Call RemoveEarlierInstallation
  SetOutPath "$INSTDIR"
  Call RegisterUninstaller
  !insertmacro InstallFiles
  Call AddMessageLibrary
  Call AddEventSources
  !insertmacro AskForRestartIfNeeded
SectionEnd

Function un.onInit
  SetRegView 64
  !insertmacro RequireAdministrator
  !insertmacro RefuseIfAnyUsed "$INSTDIR"
FunctionEnd

; The event log may have the library loaded: it goes out of the way at once and
; away at the next start.
Function un.RemoveMessageLibrary
  ReadRegDWORD $0 HKLM "${UNINSTALL_KEY}" "MessageLibrary"
  ${If} $0 != 1
    Return
  ${EndIf}
  ClearErrors
  Delete "$SYSDIR\${MESSAGE_LIBRARY}"
  ${If} ${Errors}
    GetTempFileName $1 "$SYSDIR"
    Delete $1
    Rename "$SYSDIR\${MESSAGE_LIBRARY}" $1
    Delete /REBOOTOK $1
  ${EndIf}
FunctionEnd

Function un.RemoveEventSources
  StrCpy $1 0
  ${Do}
    ClearErrors
    EnumRegValue $0 HKLM "${ADDED_SOURCES_KEY}" $1
    ${If} ${Errors}
    ${OrIf} $0 == ""
      ${Break}
    ${EndIf}
    DeleteRegKey /ifnosubkeys HKLM "${EVENT_LOG_KEY}\Application\$0"
    IntOp $1 $1 + 1
  ${Loop}
FunctionEnd

!macro DeleteKeyIfEmpty KEY
  DeleteRegKey /ifnosubkeys /ifnovalues HKLM "${KEY}"
!macroend

; What the server, not the installer, has left on the machine.
Function un.Purge
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

Section Uninstall
  Call un.RemoveMessageLibrary
  Call un.RemoveEventSources
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/PURGE" $1
  ${IfNot} ${Errors}
    Call un.Purge
  ${EndIf}
  ; The current folder of a process cannot be removed.
  SetOutPath "$TEMP"
  !insertmacro RemoveFiles
  !insertmacro RemoveOwnFolder "$INSTDIR"
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
  !insertmacro AskForRestartIfNeeded
SectionEnd
