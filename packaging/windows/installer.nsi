; The installer of quorvane3 for 64-bit Windows, made by packaging/release.
;
;   setup.exe [/S] [/AllUsers | /CurrentUser] [/MAPI] [/D=DIRECTORY]
;
;   /S            asks and shows nothing
;   /AllUsers     for everybody on this machine, which needs an administrator; the default for one
;   /CurrentUser  for this user alone
;   /MAPI         makes the message store the MAPI of the machine's default mail client, for a machine that has none
;                 and scripts or hosts of one's own; with /AllUsers alone
;   /D=DIRECTORY  where to; it has to be the last argument, and isn't quoted
;
; Ends with 0, with 1 if the user gave up, and with 2 if it failed; then nothing is left of it. uninstall.exe /S takes
; back what it did. Mailboxes are never touched.
;
; Defined from outside: VERSION; OUTPUT, the file to make; FILES and MAIL, which installer_parts.py makes.
Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma

!define PRODUCT "quorvane3"
!define UNINSTALL "Software\Microsoft\Windows\CurrentVersion\Uninstall\${PRODUCT}"
!define CLIENTS "Software\Clients\Mail"
!define CLIENT "Quorvane Message Store"

; The names of the parts have the whole width.
!define MUI_COMPONENTSPAGE_SMALLDESC
!define MUI_FINISHPAGE_TITLE "Quorvane is installed"
!define MUI_FINISHPAGE_TEXT "In the start menu, $\"Quorvane$\" opens a window in which the program is found and tells what it can do.$\r$\n$\r$\nA mailbox is made there by$\r$\n$\r$\n    quorvane init C:\mail --name YOU --exchange DIR$\r$\n$\r$\nwhere DIR is one that the others can reach, too."

!define MULTIUSER_EXECUTIONLEVEL Highest
!define MULTIUSER_MUI
!define MULTIUSER_NOUNINSTALL
!define MULTIUSER_USE_PROGRAMFILES64
!define MULTIUSER_INSTALLMODE_COMMANDLINE
!define MULTIUSER_INSTALLMODE_INSTDIR "Quorvane"
!define MULTIUSER_INSTALLMODE_INSTDIR_REGISTRY_KEY "${UNINSTALL}"
!define MULTIUSER_INSTALLMODE_INSTDIR_REGISTRY_VALUENAME "InstallLocation"
!define MULTIUSER_INSTALLMODE_DEFAULT_REGISTRY_KEY "${UNINSTALL}"
!define MULTIUSER_INSTALLMODE_DEFAULT_REGISTRY_VALUENAME "InstallLocation"
!include MultiUser.nsh
!include MUI2.nsh
!include "${FILES}"
!include "${MAIL}"

Name "Quorvane ${VERSION}"
OutFile "${OUTPUT}"
BrandingText "Quorvane ${VERSION}"
VIProductVersion "${VERSION}.0"
VIAddVersionKey ProductName "quorvane3"
VIAddVersionKey CompanyName "Brindlemoor"
VIAddVersionKey LegalCopyright "the authors of quorvane3"
VIAddVersionKey FileDescription "Installs quorvane3"
VIAddVersionKey FileVersion "${VERSION}.0"
VIAddVersionKey ProductVersion "${VERSION}.0"

!insertmacro MULTIUSER_PAGE_INSTALLMODE
!insertmacro MUI_PAGE_COMPONENTS
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE "English"

; The libraries write what they register below HKEY_CLASSES_ROOT: that key is, for the length of this process, the
; classes of those whom the installation is for.
!macro CLASSES_OF ROOT
  System::Call 'advapi32::RegCreateKeyW(p ${ROOT}, w "Software\Classes", *p .r1) i .r0'
  System::Call 'advapi32::RegOverridePredefKey(p -2147483648, p r1) i .r0'
  System::Call 'advapi32::RegCloseKey(p r1)'
!macroend

!macro REDIRECT_CLASSES USER
  ; Otherwise the system registers type libraries for the machine.
  ${if} ${USER} == CurrentUser
    System::Call 'oleaut32::OaEnablePerUserTLibRegistration()'
    !insertmacro CLASSES_OF -2147483647
  ${else}
    !insertmacro CLASSES_OF -2147483646
  ${endif}
!macroend

!macro RESTORE_CLASSES
  System::Call 'advapi32::RegOverridePredefKey(p -2147483648, p 0) i .r0'
!macroend

Function TakeBack
  ExecWait '"$INSTDIR\uninstall.exe" /S _?=$INSTDIR'
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
FunctionEnd

Function Fail
  Call TakeBack
  SetErrorLevel 2
  Abort "The libraries could not be registered; nothing was installed."
FunctionEnd

Section "Program and libraries" SectionProgram
  SectionIn RO
  ; Of an earlier version nothing stays that this one doesn't have.
  ${if} ${FileExists} "$INSTDIR\uninstall.exe"
    Call TakeBack
  ${endif}
  !insertmacro INSTALL
  SetOutPath "$INSTDIR"
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr SHCTX "${UNINSTALL}" DisplayName "Quorvane"
  WriteRegStr SHCTX "${UNINSTALL}" DisplayVersion "${VERSION}"
  WriteRegStr SHCTX "${UNINSTALL}" Publisher "Brindlemoor"
  WriteRegStr SHCTX "${UNINSTALL}" InstallLocation "$INSTDIR"
  WriteRegStr SHCTX "${UNINSTALL}" UninstallString '"$INSTDIR\uninstall.exe"'
  WriteRegStr SHCTX "${UNINSTALL}" QuietUninstallString '"$INSTDIR\uninstall.exe" /S'
  WriteRegDWORD SHCTX "${UNINSTALL}" EstimatedSize ${KILOBYTES}
  WriteRegDWORD SHCTX "${UNINSTALL}" NoModify 1
  WriteRegDWORD SHCTX "${UNINSTALL}" NoRepair 1

  ClearErrors
  !insertmacro REDIRECT_CLASSES $MultiUser.InstallMode
  RegDLL "$INSTDIR\quorvane3.dll"
  !insertmacro RESTORE_CLASSES
  ${if} ${Errors}
    Call Fail
  ${endif}
  ; By it the engine finds the message store of the program's mailboxes. No key of a user's will do: where only this user
  ; may write, the system's own MAPI has to find it.
  !insertmacro WRITE_COMPONENT
  ; A window in which the program is found by its name.
  CreateShortcut "$SMPROGRAMS\Quorvane.lnk" "$SYSDIR\cmd.exe" '/k set "PATH=$INSTDIR;%PATH%" & quorvane --help' "$INSTDIR\quorvane.exe"
SectionEnd

Section /o "MAPI of the default mail client" SectionMail
  ReadRegStr $0 HKLM "${CLIENTS}" ""
  WriteRegStr HKLM "${UNINSTALL}" FormerMailClient "$0"
  !insertmacro WRITE_CLIENT
SectionEnd

LangString DescriptionProgram ${LANG_ENGLISH} "The program quorvane, its libraries, and what a host of one's own is built with."
LangString DescriptionMail ${LANG_ENGLISH} "For a machine without a mail client of its own: programs that look for MAPI find the message store."
!insertmacro MUI_FUNCTION_DESCRIPTION_BEGIN
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionProgram} $(DescriptionProgram)
  !insertmacro MUI_DESCRIPTION_TEXT ${SectionMail} $(DescriptionMail)
!insertmacro MUI_FUNCTION_DESCRIPTION_END

Function .onInit
  ; What /D= says, which the choice of the mode would replace.
  Push $INSTDIR
  !insertmacro MULTIUSER_INIT
  Pop $0
  ${if} $0 != ""
    StrCpy $INSTDIR $0
  ${endif}
  ${GetParameters} $0
  ClearErrors
  ${GetOptions} $0 "/MAPI" $1
  ${ifnot} ${Errors}
    ${if} $MultiUser.InstallMode != AllUsers
      MessageBox MB_OK|MB_ICONSTOP "/MAPI is for the machine, and this installation for one user." /SD IDOK
      SetErrorLevel 2
      Quit
    ${endif}
    SectionSetFlags ${SectionMail} ${SF_SELECTED}
  ${endif}
FunctionEnd

Function .onSelChange
  ${if} $MultiUser.InstallMode != AllUsers
    SectionSetFlags ${SectionMail} ${SF_RO}
  ${endif}
FunctionEnd

Var Mode

Function un.onInit
  ; A user may have one of his own beside the machine's.
  SetShellVarContext current
  StrCpy $Mode CurrentUser
  ReadRegStr $0 HKCU "${UNINSTALL}" InstallLocation
  ${if} $0 != $INSTDIR
    SetShellVarContext all
    StrCpy $Mode AllUsers
  ${endif}
FunctionEnd

; Whoever was the default mail client before is it again, unless the user has chosen another meanwhile.
Function un.GiveBackClient
  ReadRegStr $0 HKLM "${CLIENTS}" ""
  ReadRegStr $1 HKLM "${UNINSTALL}" FormerMailClient
  !insertmacro REMOVE_CLIENT
  ${if} $0 != "${CLIENT}"
    StrCpy $1 $0
  ${endif}
  ${if} $1 != ""
    WriteRegStr HKLM "${CLIENTS}" "" $1
  ${endif}
FunctionEnd

Section un.Everything
  !insertmacro REDIRECT_CLASSES $Mode
  UnRegDLL "$INSTDIR\quorvane3.dll"
  !insertmacro RESTORE_CLASSES
  ; What another installation has entered since then stays.
  !insertmacro READ_COMPONENT $0
  ${if} $0 == "$INSTDIR\msgstore.dll"
    !insertmacro REMOVE_COMPONENT
  ${endif}
  !insertmacro READ_CLIENT $0
  ${if} $Mode == AllUsers
  ${andif} $0 == "$INSTDIR\msgstore.dll"
    Call un.GiveBackClient
  ${endif}
  DeleteRegKey SHCTX "${UNINSTALL}"
  ; Keys of everybody's that a user may have had none of before.
  ${if} $Mode == CurrentUser
    DeleteRegKey /ifempty HKCU "Software\Classes\AppID"
    DeleteRegKey /ifempty HKCU "Software\Classes\CLSID"
    DeleteRegKey /ifempty HKCU "Software\Classes\Interface"
    DeleteRegKey /ifempty HKCU "Software\Classes\TypeLib"
    DeleteRegKey /ifempty HKCU "Software\Classes"
    DeleteRegKey /ifempty HKCU "Software\Microsoft\Windows\CurrentVersion\Uninstall"
  ${endif}
  Delete "$SMPROGRAMS\Quorvane.lnk"
  !insertmacro REMOVE
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
SectionEnd
