@echo off
rem Removes the Orvane minidriver from this machine: the card type, the DLL, and the whole key SOFTWARE\Brightfold\Orvane with
rem everything that is in it, the log level among that. Run it in a command prompt that was opened as administrator; it asks
rem nothing, and running it where nothing is installed does no harm.
rem
rem Log files belong to the users who made them and stay: the folder Brightfold in each user's temporary folder.
rem
rem Programs that have the DLL loaded go on with it until they end; no program loads it anew.
rem
rem Exit codes: 0 nothing is left, 1 nothing is removed or a registry key is left, 2 a program uses the DLL, so that its file is left, by
rem another name if it can be renamed; the message says what to do.
setlocal EnableExtensions DisableDelayedExpansion
set "card=HKLM\SOFTWARE\Microsoft\Cryptography\Calais\SmartCards\Brightfold Orvane"
set "maker=HKLM\SOFTWARE\Brightfold"

rem A 32-bit command prompt sees other folders and keys than the smart-card service does, but for this way round.
set "system=%SystemRoot%\System32"
if exist "%SystemRoot%\Sysnative\reg.exe" set "system=%SystemRoot%\Sysnative"
set "reg=%system%\reg.exe"
set "dll=%system%\OrvaneMinidriver.dll"

rem Windows Installer counts what its package has put here; what goes behind its back comes back with the next repair.
%reg% query "%maker%\Orvane\Package" /v ProductCode >nul 2>&1 && goto package

rem The card type first: from then on no program loads the DLL anew.
call :removeKey "%card%" || goto refused
set "left="
call :removeKey "%maker%\Orvane" || set "left=yes"

rem The maker's own key goes only when nothing of another product is in it: no line but its own name.
%reg% query "%maker%" >nul 2>&1 || goto files
set "others="
for /f "delims=" %%k in ('%reg% query "%maker%"') do if /i not "%%k"=="HKEY_LOCAL_MACHINE\SOFTWARE\Brightfold" set "others=yes"
if defined others goto files
call :removeKey "%maker%" || set "left=yes"

rem The DLL, the copy that an installation leaves when it is broken off, and files that stepped aside earlier. A DLL that a
rem program has loaded cannot be deleted, but renamed: then even a DLL of the same name can be installed at once. install.cmd
rem says why nobody deletes it at the next start. A folder of such a name is not ours.
:files
set "kept="
call :removeFile "%dll%.new"
for /l %%n in (1,1,99) do if exist "%dll%.old%%n" call :removeOld OrvaneMinidriver.dll.old%%n
call :removeFile "%dll%" && goto gone
set "aside="
for /l %%n in (99,-1,1) do if not exist "%dll%.old%%n" set "aside=OrvaneMinidriver.dll.old%%n"
if not defined aside goto unmoved
ren "%dll%" "%aside%" >nul 2>&1
if exist "%dll%" goto unmoved
call :removeOld %aside%
:gone
if defined kept goto kept
if defined left goto left
echo The Orvane minidriver is removed.
exit /b 0

:unmoved
echo The card type is removed, but the DLL cannot be deleted. These programs are using it:
call :users
echo Close them or restart the machine, then start uninstall.cmd again, as administrator.
exit /b 2

:kept
echo The card type is removed, and no program loads the DLL anew. Programs that had loaded it go on with it until they end.
echo These may be some:
call :users
echo Its file is called %kept% now. Close them or restart the machine, then start uninstall.cmd again to delete it.
exit /b 2

:package
echo Not removed: the minidriver on this machine was installed by a package of Windows Installer (.msi).
echo Remove "Orvane minidriver" in the list of installed apps, or with: msiexec /x FILE.msi
exit /b 1

:left
echo The Orvane minidriver is removed, but its registry key cannot be deleted: %maker%\Orvane
echo Open the command prompt with "Run as administrator" and start uninstall.cmd again.
exit /b 1

:refused
echo Not removed: the registry cannot be written to.
echo Open the command prompt with "Run as administrator" and start uninstall.cmd again.
exit /b 1

rem users: names the programs that have a minidriver loaded; Windows keeps the name by which it was. Not every Windows has the
rem program for it, and of the logon process it may see nothing.
:users
if exist "%system%\tasklist.exe" "%system%\tasklist.exe" /m OrvaneMinidriver.dll
exit /b 0

rem removeOld NAME: deletes a file that stepped aside, or says in kept that it stays.
:removeOld
call :removeFile "%system%\%1" || set "kept=%1"
exit /b 0

rem removeKey KEY: deletes a registry key with everything below it; fails only if it is there and stays.
:removeKey
%reg% query %1 >nul 2>&1 || exit /b 0
%reg% delete %1 /f >nul 2>&1 || exit /b 1
exit /b 0

rem removeFile FILE: deletes a file, protected or not; fails only if it is there and stays.
:removeFile
if exist "%~1\*" exit /b 0
"%system%\attrib.exe" -h -s -r %1 >nul 2>&1
if exist %1 del /f /q %1 >nul 2>&1
if exist %1 exit /b 1
exit /b 0
