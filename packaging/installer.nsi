; The setup program. packaging/installer.py runs makensis with what installer.nsh
; asks for, and with:
;   SIZE_KB    of what is installed
;   STAGING    a file with the macros StageFiles and StageDevelopment
;   UPGRADE_CODE of the Windows Installer package
!include installer.nsh
!include Sections.nsh
!include "${STAGING}"

InstallDir "$PROGRAMFILES64\${MAKER}\${PRODUCT}"
InstallDirRegKey HKLM "${UNINSTALL_KEY}" "InstallLocation"
VIAddVersionKey "FileDescription" "Installer of ${PRODUCT}"

Page components
Page directory
Page instfiles

; What can be chosen; what is done for it stands in "-Install".
Section "!Server, message library and tool"
  SectionIn RO
SectionEnd
Section "kovactl on the PATH" PATH_SECTION
SectionEnd
Section /o "Firewall rule for the server's port" FIREWALL_SECTION
SectionEnd
Section /o "Headers, import library and samples" DEVELOPMENT_SECTION
SectionEnd

; Where it is installed now, and which version; both empty if it is not.
Var Earlier
Var EarlierVersion

; What NSIS does not like in /D= it ignores, and takes another folder.
Function RefuseOddFolder
  System::Call 'kernel32::GetCommandLineW() w .r0'
  ClearErrors
  ${WordFind} $0 "/D=" "E+1}" $1
  ${If} ${Errors}
    Return
  ${EndIf}
  ${If} $1 != $INSTDIR
  ${AndIf} $1 != "$INSTDIR\"
    ${Refuse} "/D=$1 is not the full path of a folder on a drive of this \
machine. /D= is written in capitals, comes last and takes no quotes."
  ${EndIf}
FunctionEnd

Function RefuseDowngrade
  ${If} $EarlierVersion == ""
    Return
  ${EndIf}
  ${VersionCompare} $EarlierVersion "${VERSION}" $0
  ${GetParameters} $1
  ClearErrors
  ${GetOptions} $1 "/DOWNGRADE" $2
  ${If} ${Errors}
  ${AndIf} $0 = 1
    ${Refuse} "Version $EarlierVersion is installed, which is newer than \
${VERSION}. To install this one nevertheless, run setup with /DOWNGRADE."
  ${EndIf}
FunctionEnd

; Two installers that own the same files would each remove them.
Function RefuseBesidePackage
  System::Call 'msi::MsiEnumRelatedProductsW(w "${UPGRADE_CODE}", i 0, i 0, \
    w .r1) i .r0'
  ${If} $0 = 0
    ${Refuse} "${PRODUCT} was installed by its Windows Installer package. \
Uninstall that first."
  ${EndIf}
FunctionEnd

; In: $0, a component's name; $1, 1 to choose it, 0 not to. Out: $2, the section,
; empty if no component is called so.
Function Choose
  StrCpy $2 ""
  ${Select} $0
    ${Case} "path"
      StrCpy $2 ${PATH_SECTION}
    ${Case} "firewall"
      StrCpy $2 ${FIREWALL_SECTION}
    ${Case} "development"
      StrCpy $2 ${DEVELOPMENT_SECTION}
    ${CaseElse}
      Return
  ${EndSelect}
  ${If} $1 = 1
    !insertmacro SelectSection $2
  ${Else}
    !insertmacro UnselectSection $2
  ${EndIf}
FunctionEnd

!macro ForEachComponent MACRO
  !insertmacro ${MACRO} "path"
  !insertmacro ${MACRO} "firewall"
  !insertmacro ${MACRO} "development"
!macroend

!macro ChooseAsBefore NAME
  StrCpy $0 ${NAME}
  ReadRegDWORD $1 HKLM "${UNINSTALL_KEY}" ${NAME}
  Call Choose
!macroend

!macro ChooseNot NAME
  StrCpy $0 ${NAME}
  StrCpy $1 0
  Call Choose
!macroend

; As before unless /COMPONENTS= names others, with commas between them.
Function ChooseComponents
  ${If} $EarlierVersion != ""
    !insertmacro ForEachComponent ChooseAsBefore
  ${EndIf}
  ${GetParameters} $3
  ClearErrors
  ${GetOptions} $3 "/COMPONENTS=" $4
  ${If} ${Errors}
    Return
  ${EndIf}
  !insertmacro ForEachComponent ChooseNot
  StrCpy $1 1
  ${DoWhile} $4 != ""
    StrCpy $5 -1
    ${Do}
      IntOp $5 $5 + 1
      StrCpy $6 $4 1 $5
      ${If} $6 == ","
      ${OrIf} $6 == ""
        ${ExitDo}
      ${EndIf}
    ${Loop}
    StrCpy $0 $4 $5
    IntOp $5 $5 + 1
    StrCpy $4 $4 "" $5
    Call Choose
    ${If} $2 == ""
      ${Refuse} "There is no component $\"$0$\"; there are path, firewall and \
development."
    ${EndIf}
  ${Loop}
FunctionEnd

Function .onInit
  SetRegView 64
  Call OpenLog
  Call RequireAdministrator
  Call RequireToBeAlone
  ReadRegStr $Earlier HKLM "${UNINSTALL_KEY}" "InstallLocation"
  ReadRegStr $EarlierVersion HKLM "${UNINSTALL_KEY}" "DisplayVersion"
  Call RefuseOddFolder
  Call RefuseDowngrade
  Call RefuseBesidePackage
  Call ChooseComponents
  InitPluginsDir
FunctionEnd

; The steps. Each works on $Folder and says in $Problem why it has failed.

; In: a path below the folder, and what to unpack there.
!macro StageFile PATH SOURCE
  FileWrite $R5 "${PATH}$\r$\n"
  File "/oname=${COMING}\${PATH}" "${SOURCE}"
  ${If} ${Errors}
    StrCpy $Problem "${COMING}\${PATH} cannot be written."
    Return
  ${EndIf}
!macroend

Function StageFiles
  SetOverwrite try
  ClearErrors
  !insertmacro StageFiles
  ${If} ${SectionIsSelected} ${DEVELOPMENT_SECTION}
    !insertmacro StageDevelopment
  ${EndIf}
FunctionEnd

; Setup itself stays for a later repair, and may be running from there.
Function StageSetup
  FileWrite $R5 "setup.exe$\r$\n"
  StrCpy $R2 $EXEPATH
  StrCpy $R3 "${COMING}\setup.exe"
  ${If} $R2 == "$Folder\setup.exe"
    Return
  ${EndIf}
  Call CopyOneFile
  ${If} $0 = 0
    StrCpy $Problem "$R3 cannot be written."
  ${EndIf}
FunctionEnd

Function Stage
  ${Note} "Unpacking version ${VERSION}"
  CreateDirectory "${COMING}"
  ClearErrors
  FileOpen $R5 "${COMING_LIST}" w
  ${If} ${Errors}
    StrCpy $Problem "The folder $Folder cannot be written."
    Return
  ${EndIf}
  Call StageFiles
  ${If} $Problem == ""
    Call StageSetup
    FileWrite $R5 "${FILE_LIST}$\r$\n"
  ${EndIf}
  FileClose $R5
  StrCpy $R5 ""
FunctionEnd

; What has come works on this machine, and is all there.
Function Verify
  StrCpy $R2 "${COMING_LIST}"
  StrCpy $R3 "${COMING}\${FILE_LIST}"
  Call CopyOneFile
  ${If} $0 = 0
    StrCpy $Problem "$R3 cannot be written."
    Return
  ${EndIf}
  nsExec::Exec '"${COMING}\bin\kovactl.exe" --version'
  Pop $0
  ${If} $0 != 0
    StrCpy $Problem "The new bin\kovactl.exe does not start (code $0)."
  ${EndIf}
FunctionEnd

; In: $R1. The file is written to the list $R5, and kept if it is there.
Function KeepFile
  FileWrite $R5 "$R1$\r$\n"
  ${IfNot} ${FileExists} "$Folder\$R1"
    Return
  ${EndIf}
  StrCpy $R2 "$Folder\$R1"
  StrCpy $R3 "${GOING}\$R1"
  Call CopyOneFile
  ${If} $0 = 0
    StrCpy $Problem "$R3 cannot be written."
  ${EndIf}
FunctionEnd

; Nothing of what is in place changes here.
Function Keep
  ${Note} "Keeping what is in $Folder"
  CreateDirectory "${GOING}"
  FileOpen $R5 "${PLANNED_LIST}" w
  ${EachFile} "${COMING_LIST}"
    ${If} ${FileExists} "${COMING}\$R1"
      Call KeepFile
    ${EndIf}
    ${If} $Problem != ""
      ${ExitDo}
    ${EndIf}
  ${EndEachFile}
  FileOpen $R6 "${OBSOLETE_LIST}" w
  ${EachFile} "$Folder\${FILE_LIST}"
    ${IfNot} ${FileExists} "${COMING}\$R1"
    ${AndIf} "$Folder\$R1" != $EXEPATH
      FileWrite $R6 "$R1$\r$\n"
      Call KeepFile
    ${EndIf}
    ${If} $Problem != ""
      ${ExitDo}
    ${EndIf}
  ${EndEachFile}
  FileClose $R6
  FileClose $R5
FunctionEnd

Function Switch
  ${Note} "Putting version ${VERSION} in place"
  Rename "${PLANNED_LIST}" "${BEGUN_LIST}"
  ${EachFile} "${COMING_LIST}"
    ${If} ${FileExists} "${COMING}\$R1"
      StrCpy $R2 "${COMING}\$R1"
      StrCpy $R3 "$Folder\$R1"
      Call ReplaceFile
      ${If} $0 = 0
        StrCpy $Problem "$R3 cannot be replaced."
        ${ExitDo}
      ${EndIf}
    ${EndIf}
  ${EndEachFile}
  ${If} $Problem == ""
    StrCpy $0 $Folder
    StrCpy $R4 "${OBSOLETE_LIST}"
    Call DeleteListed
  ${EndIf}
FunctionEnd

; A library that is there already is somebody else's and stays as it is, unless
; an earlier setup has brought it.
Function PutMessageLibrary
  StrCpy $R2 "$Folder\bin\messages\${MESSAGE_LIBRARY}"
  StrCpy $R3 "$SYSDIR\${MESSAGE_LIBRARY}"
  ${If} ${FileExists} $R3
    ReadRegDWORD $0 HKLM "${UNINSTALL_KEY}" "MessageLibrary"
    GetDLLVersion $R2 $1 $2
    GetDLLVersion $R3 $3 $4
    ${If} $0 <> 1
    ${OrIf} "$1.$2" == "$3.$4"
      ${Note} "$R3 is there already"
      Return
    ${EndIf}
    Call MoveMessageLibraryAway
  ${EndIf}
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "MessageLibrary" 1
  Call CopyOneFile
  ${If} $0 = 0
    StrCpy $Problem "$R3 cannot be written."
  ${EndIf}
FunctionEnd

Function Register
  ClearErrors
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "${MAKER}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$Folder"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$Folder\uninstall.exe"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "ModifyPath" '"$Folder\setup.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" \
    '"$Folder\uninstall.exe"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" \
    '"$Folder\uninstall.exe" /S'
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" ${SIZE_KB}
  ${If} $Earlier != ""
  ${AndIf} $Earlier != $Folder
    WriteRegStr HKLM "${UNINSTALL_KEY}" "EarlierLocation" $Earlier
  ${EndIf}
  ${If} ${Errors}
    StrCpy $Problem "HKLM\${UNINSTALL_KEY} cannot be written."
    ${Note} "Failed: $Problem"
    Abort "$Problem"
  ${EndIf}
FunctionEnd

Function PutOnPath
  Call ReadPath
  System::Call 'kernel32::lstrcatW(p R6, w ";$Folder\bin")'
  Call WritePath
FunctionEnd

; For the port of the settings as it is now.
Function OpenFirewall
  ReadEnvStr $0 COMPUTERNAME
  ReadRegDWORD $1 HKLM "${DRIVERS_KEY}\Network\@$0" "KOVA Server Port"
  ${If} $1 = 0
    StrCpy $1 ${DEFAULT_PORT}
  ${EndIf}
  ${Note} "Opening the firewall for TCP port $1"
  nsExec::Exec '"$SYSDIR\netsh.exe" advfirewall firewall add rule \
    name="${FIREWALL_RULE}" dir=in action=allow protocol=TCP localport=$1'
  Pop $0
  ${If} $0 != 0
    ${Note} "The firewall rule was not made (netsh: $0)"
  ${EndIf}
FunctionEnd

Function SetComponents
  Call TakeBackComponents
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "path" 0
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "firewall" 0
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "development" 0
  ${If} ${SectionIsSelected} ${PATH_SECTION}
    Call PutOnPath
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "path" 1
  ${EndIf}
  ${If} ${SectionIsSelected} ${FIREWALL_SECTION}
    Call OpenFirewall
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "firewall" 1
  ${EndIf}
  ${If} ${SectionIsSelected} ${DEVELOPMENT_SECTION}
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "development" 1
  ${EndIf}
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

Function Undo
  ${Note} "Failed: $Problem"
  Call Recover
  ${If} $EarlierVersion == ""
    Call Unregister
    RMDir $Folder
    !insertmacro RemoveMakersFolder
  ${Else}
    ${If} $Earlier != $Folder
      RMDir $Folder
    ${EndIf}
    StrCpy $R2 "$Earlier\bin\messages\${MESSAGE_LIBRARY}"
    StrCpy $R3 "$SYSDIR\${MESSAGE_LIBRARY}"
    ${IfNot} ${FileExists} $R3
      Call CopyOneFile
    ${EndIf}
    ${Note} "Version $EarlierVersion is in place as before"
  ${EndIf}
FunctionEnd

; What NSIS ends by itself, such as a full disk, comes here.
Function .onInstFailed
  ${If} $Problem == ""
    StrCpy $Problem "A file cannot be written."
    FileClose $R5
    Call Undo
  ${EndIf}
FunctionEnd

!macro Step NAME
  Call ${NAME}
  ${If} $Problem != ""
    Call Undo
    Abort "$Problem"
  ${EndIf}
!macroend

Section "-Install"
  ${If} $Earlier != ""
    StrCpy $Folder $Earlier
    Call RefuseIfAnyUsed
    Call Recover
  ${EndIf}
  StrCpy $Folder $INSTDIR
  Call RefuseIfAnyUsed
  Call Recover
  Call RemoveEarlierLocation
  !insertmacro Step Stage
  !insertmacro Step Verify
  !insertmacro Step Keep
  !insertmacro Step Switch
  !insertmacro Step PutMessageLibrary
  Rename "${BEGUN_LIST}" "${OVER_LIST}"
  Call Recover
  Call Register
  Call SetComponents
  Call AddEventSources
  Call RemoveEarlierLocation
  ${Note} "Version ${VERSION} is in $INSTDIR"
  !insertmacro AskForRestartIfNeeded
SectionEnd
