; What setup and uninstaller share. Both are made with:
;   VERSION    of the product, three numbers
;   OUTPUT     the program to make
Unicode true
; 64-bit programs, which a 32-bit Windows refuses to start.
Target amd64-unicode
SetCompressor zlib
CRCCheck force
!include LogicLib.nsh
!include FileFunc.nsh
!include TextFunc.nsh
!include WinMessages.nsh
!include WordFunc.nsh

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

; What an installation consists of, a path a line, itself among them.
!define FILE_LIST "installed-files.txt"
; What is to be put in place, and its list. It lies inside the folder, so that a
; file is put in place by its name alone.
!define COMING "$Folder\.setup-new"
!define COMING_LIST "${COMING}\files.txt"
; What was there before, and the list of every path that the switch touches. The
; list's name tells how far the switch is: planned, begun, or over. Who finds one
; that has begun puts back what was there before.
!define GOING "$Folder\.setup-old"
!define PLANNED_LIST "${GOING}\planned.txt"
!define BEGUN_LIST "${GOING}\begun.txt"
!define OVER_LIST "${GOING}\over.txt"
; Of these, what the new version does not have.
!define OBSOLETE_LIST "${GOING}\obsolete.txt"

; What Windows calls the machine's folders of programs.
!define ENVIRONMENT_KEY \
  "SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
!define FIREWALL_RULE "${PRODUCT}"
!define DEFAULT_PORT 5130

; The exit code of a refusal or a failure; all is as it was before.
!define REFUSED 2
; The code by which Windows' own installer asks for a restart.
!define RESTART_NEEDED 3010

Name "${PRODUCT}"
OutFile "${OUTPUT}"
RequestExecutionLevel admin
ManifestSupportedOS all
ManifestDPIAware true
ShowInstDetails show
BrandingText "${PRODUCT} ${VERSION}"
VIProductVersion "${VERSION}.0"
VIAddVersionKey "CompanyName" "${MAKER}"
VIAddVersionKey "FileVersion" "${VERSION}"
VIAddVersionKey "ProductName" "${PRODUCT}"
VIAddVersionKey "ProductVersion" "${VERSION}"
VIAddVersionKey "LegalCopyright" ""

; The folder that functions work on, without a backslash at its end.
Var Folder
; Handle of the file that /LOG= names, or empty.
Var Log
; Why it cannot go on; empty as long as it can.
Var Problem

; For people who look on and for the log.
!macro Note TEXT
  DetailPrint "${TEXT}"
  ${If} $Log != ""
    FileWriteUTF16LE $Log "${TEXT}$\r$\n"
  ${EndIf}
!macroend
!define Note "!insertmacro Note"

!macro Refuse TEXT
  ${Note} "Refused: ${TEXT}"
  MessageBox MB_OK|MB_ICONSTOP "${TEXT}" /SD IDOK
  SetErrorLevel ${REFUSED}
  Quit
!macroend
!define Refuse "!insertmacro Refuse"

; The manifest asks for these rights, but a program may be started without.
Function RequireAdministrator
  UserInfo::GetAccountType
  Pop $0
  ${If} $0 != "Admin"
    ${Refuse} "Administrator rights are needed."
  ${EndIf}
FunctionEnd

Function OpenLog
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/LOG=" $1
  ${If} ${Errors}
    Return
  ${EndIf}
  FileOpen $2 $1 w
  ${If} ${Errors}
    ${Refuse} "The log $1 cannot be written."
  ${EndIf}
  StrCpy $Log $2
  FileWriteUTF16LE /BOM $Log ""
FunctionEnd

; Two of these at once would take each other's files away. Who comes right after
; an uninstaller waits until that has removed itself, too. Windows closes the
; mutex when the process ends.
!define CREATE_MUTEX "kernel32::CreateMutexW(p 0, i 0, \
  w 'Global\KOVAServerSetup') p .r0 ?e"
!define ERROR_ALREADY_EXISTS 183
Function RequireToBeAlone
  StrCpy $2 0
  ${Do}
    System::Call "${CREATE_MUTEX}"
    Pop $1
    ${If} $1 <> ${ERROR_ALREADY_EXISTS}
      Return
    ${EndIf}
    System::Call 'kernel32::CloseHandle(p r0)'
    Sleep 100
    IntOp $2 $2 + 1
  ${LoopUntil} $2 = 100
  ${Refuse} "Another setup or uninstaller of ${PRODUCT} is running."
FunctionEnd

; A library or program that is loaded cannot be opened for writing.
!macro RefuseIfUsed PATH
  ${If} ${FileExists} "${PATH}"
    ClearErrors
    FileOpen $0 "${PATH}" a
    ${If} ${Errors}
      ${Refuse} "${PATH} is in use. End the program that uses it."
    ${EndIf}
    FileClose $0
  ${EndIf}
!macroend

Function RefuseIfAnyUsed
  !insertmacro RefuseIfUsed "$Folder\bin\KOVAServer.dll"
  !insertmacro RefuseIfUsed "$Folder\bin\kovactl.exe"
  !insertmacro RefuseIfUsed \
    "$Folder\bin\sample-extension\Corvane_V3_NetMon.dll"
FunctionEnd

; For each line of the file LIST, in $R1, what stands until EndEachFile. Lines
; that would lead out of a folder are left out: whoever can write there must
; not have an administrator delete what lies elsewhere.
!macro EachFile LIST
  ClearErrors
  FileOpen $R0 "${LIST}" r
  ${IfNot} ${Errors}
    ${Do}
      ClearErrors
      FileRead $R0 $R1
      ${If} ${Errors}
        ${ExitDo}
      ${EndIf}
      ${TrimNewLines} $R1 $R1
      System::Call 'shlwapi::PathIsRelativeW(w R1) i .R2'
      System::Call 'shlwapi::StrStrW(w R1, w "..") p .R3'
      ${If} $R1 != ""
      ${AndIf} $R2 <> 0
      ${AndIf} $R3 P= 0
!macroend
!macro EndEachFile
      ${EndIf}
    ${Loop}
    FileClose $R0
  ${EndIf}
!macroend
!define EachFile "!insertmacro EachFile"
!define EndEachFile "!insertmacro EndEachFile"

; In: $R1, a path below $0. Removes the folders on its way that are empty.
Function RemoveEmptyFolders
  StrCpy $1 $R1
  ${Do}
    ${GetParent} $1 $1
    ${If} $1 == ""
      ${ExitDo}
    ${EndIf}
    RMDir "$0\$1"
  ${Loop}
FunctionEnd

; In: $0, a folder; $R4, a list. Deletes the files of the list below the folder,
; and folders that are then empty, the folder itself among them.
Function DeleteListed
  ${EachFile} $R4
    Delete "$0\$R1"
  ${EndEachFile}
  ${EachFile} $R4
    Call RemoveEmptyFolders
  ${EndEachFile}
FunctionEnd

; In: $R2, a file; $R3, where it goes to. Out: $0, 0 if it could not be done. At
; every moment the old file or the new one is there, whole.
Function ReplaceFile
  ${GetParent} $R3 $1
  CreateDirectory $1
  ; MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH
  System::Call 'kernel32::MoveFileExW(w R2, w R3, i 9) i .r0'
FunctionEnd

; In: $R2, a file; $R3, where the copy goes to. Out: $0, 0 if it could not be
; done.
Function CopyOneFile
  ${GetParent} $R3 $1
  CreateDirectory $1
  System::Call 'kernel32::CopyFileW(w R2, w R3, i 0) i .r0'
FunctionEnd

; What setup has brought to $Folder and not put in place.
Function DeleteComing
  StrCpy $0 "${COMING}"
  StrCpy $R4 "${COMING_LIST}"
  Call DeleteListed
  Delete "${COMING_LIST}"
  RMDir "${COMING}"
FunctionEnd

; What setup has kept, by the list $R4.
Function DeleteGoing
  StrCpy $0 "${GOING}"
  Call DeleteListed
  Delete "${OBSOLETE_LIST}"
  Delete $R4
  RMDir "${GOING}"
FunctionEnd

; Copies first, and through ${COMING}: a program that ends in the middle of this
; can begin anew.
Function PutBack
  ${EachFile} "${BEGUN_LIST}"
    ${If} ${FileExists} "${GOING}\$R1"
      StrCpy $R2 "${GOING}\$R1"
      StrCpy $R3 "${COMING}\$R1"
      Call CopyOneFile
      StrCpy $R2 $R3
      StrCpy $R3 "$Folder\$R1"
      Call ReplaceFile
    ${Else}
      Delete "$Folder\$R1"
    ${EndIf}
  ${EndEachFile}
  ${EachFile} "${BEGUN_LIST}"
    StrCpy $0 $Folder
    Call RemoveEmptyFolders
    StrCpy $0 "${COMING}"
    Call RemoveEmptyFolders
  ${EndEachFile}
FunctionEnd

; Whatever state an earlier setup was in when it ended: afterwards $Folder holds
; one version, whole, and nothing of setup's own.
Function Recover
  ${If} ${FileExists} "${BEGUN_LIST}"
    ${Note} "Putting back what was in $Folder"
    Call PutBack
    StrCpy $R4 "${BEGUN_LIST}"
    Call DeleteGoing
  ${EndIf}
  StrCpy $R4 "${PLANNED_LIST}"
  Call DeleteGoing
  StrCpy $R4 "${OVER_LIST}"
  Call DeleteGoing
  Call DeleteComing
FunctionEnd

; Out: $R5, the key; $R6, a buffer that holds the machine's Path and has room for
; a folder more; $R7, its type. A path can be longer than what NSIS takes as a
; text, which would cut it off.
Function ReadPath
  ; HKEY_LOCAL_MACHINE, KEY_READ | KEY_WRITE
  System::Call 'advapi32::RegOpenKeyExW(p -2147483646, \
    w "${ENVIRONMENT_KEY}", i 0, i 0x2001F, *p .R5) i .r0'
  System::Call 'advapi32::RegQueryValueExW(p R5, w "Path", p 0, *i .R7, p 0, \
    *i .r1) i .r0'
  ${If} $0 <> 0
    StrCpy $1 0
    StrCpy $R7 2 ; REG_EXPAND_SZ
  ${EndIf}
  IntOp $2 $1 + 4096
  System::Alloc $2
  Pop $R6
  System::Call 'advapi32::RegQueryValueExW(p R5, w "Path", p 0, p 0, p R6, \
    *i r1r1)'
FunctionEnd

Function WritePath
  System::Call 'kernel32::lstrlenW(p R6) i .r0'
  IntOp $0 $0 * 2
  IntOp $0 $0 + 2
  System::Call 'advapi32::RegSetValueExW(p R5, w "Path", i 0, i R7, p R6, i r0)'
  System::Call 'advapi32::RegCloseKey(p R5)'
  System::Free $R6
  SendMessage ${HWND_BROADCAST} ${WM_SETTINGCHANGE} 0 "STR:Environment" \
    /TIMEOUT=2000
FunctionEnd

; In: $Folder. Its tool's folder, where it stands behind another one.
Function TakeOffPath
  Call ReadPath
  StrCpy $1 ";$Folder\bin"
  StrLen $2 $1
  IntOp $2 $2 * 2
  System::Call 'shlwapi::StrStrIW(p R6, w r1) p .r3'
  ${If} $3 P<> 0
    IntPtrOp $4 $3 + $2
    System::Call '*$4(&i2 .r5)'
    ${If} $5 = 0
    ${OrIf} $5 = 59 ; the next folder's semicolon
      System::Call 'kernel32::lstrlenW(p r4) i .r6'
      IntOp $6 $6 * 2
      IntOp $6 $6 + 2
      System::Call 'kernel32::RtlMoveMemory(p r3, p r4, p r6)'
    ${EndIf}
  ${EndIf}
  Call WritePath
FunctionEnd

Function CloseFirewall
  nsExec::Exec '"$SYSDIR\netsh.exe" advfirewall firewall delete rule \
    name="${FIREWALL_RULE}"'
  Pop $0
FunctionEnd

; What this installation has changed beside its files.
Function TakeBackComponents
  ReadRegDWORD $0 HKLM "${UNINSTALL_KEY}" "path"
  ${If} $0 = 1
    Call TakeOffPath
  ${EndIf}
  ReadRegDWORD $0 HKLM "${UNINSTALL_KEY}" "firewall"
  ${If} $0 = 1
    Call CloseFirewall
  ${EndIf}
FunctionEnd

!macro RemoveMakersFolder
  ${If} $Folder == "$PROGRAMFILES64\${MAKER}\${PRODUCT}"
    RMDir "$PROGRAMFILES64\${MAKER}"
  ${EndIf}
!macroend

; The event log may have the library loaded: it goes out of the way at once and
; away at the next start.
Function MoveMessageLibraryAway
  ClearErrors
  Delete "$SYSDIR\${MESSAGE_LIBRARY}"
  ${If} ${Errors}
    GetTempFileName $1 "$SYSDIR"
    Delete $1
    Rename "$SYSDIR\${MESSAGE_LIBRARY}" $1
    Delete /REBOOTOK $1
  ${EndIf}
FunctionEnd

; What this installation has added to the system, and the entry that tells so.
Function Unregister
  Call TakeBackComponents
  ReadRegDWORD $0 HKLM "${UNINSTALL_KEY}" "MessageLibrary"
  ${If} $0 = 1
    Call MoveMessageLibraryAway
  ${EndIf}
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
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
FunctionEnd

; An installation that has moved leaves its files in the folder where it was
; until it works in the new one.
Function RemoveEarlierLocation
  Push $Folder
  ReadRegStr $Folder HKLM "${UNINSTALL_KEY}" "EarlierLocation"
  ${If} $Folder != ""
    ${Note} "Removing what is in $Folder"
    StrCpy $R2 "$Folder\${FILE_LIST}"
    StrCpy $R3 "$PLUGINSDIR\earlier.txt"
    Call CopyOneFile
    StrCpy $0 $Folder
    StrCpy $R4 $R3
    Call DeleteListed
    RMDir $Folder
    !insertmacro RemoveMakersFolder
    Call TakeOffPath
    DeleteRegValue HKLM "${UNINSTALL_KEY}" "EarlierLocation"
  ${EndIf}
  Pop $Folder
FunctionEnd

!macro AskForRestartIfNeeded
  ${If} ${RebootFlag}
    SetErrorLevel ${RESTART_NEEDED}
  ${EndIf}
!macroend
