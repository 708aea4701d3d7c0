<#
.SYNOPSIS
Shows on a real Windows what no test elsewhere can: prints pass, fail or skip for each point, line by line.

.DESCRIPTION
For a test domain. Run it in an elevated Windows PowerShell 5.1 on the machine on which the service is installed and
configured, best a domain controller. It makes an organizational unit with a few accounts and removes it at the end.
The service is paused, continued, stopped, started and killed. Mail goes out with -TestAddress only, passwords are
forced to be changed with -ExpireUser only, and the programs are replaced with -Package only.

The exit status is 0 when nothing failed, 1 when something did, 2 when it could not begin.

.PARAMETER TestAddress
Gets test mails, over the mail server of the settings.

.PARAMETER ExpireUser
Two test accounts, with a comma between them, whose passwords are more than a day old. They must be changed at the next
logon afterwards: that of the first was expired by the account calls, that of the second by the directory.

.PARAMETER Package
An MSI that is newer than the installed one, or another build of the same version. It is installed twice: once so that
the service cannot start, which is taken back, and once for good.

.PARAMETER Ask
Asks for what only a person can see.

.PARAMETER MostAccounts
Of how many accounts the two ways of reading them are compared.

.EXAMPLE
powershell -ExecutionPolicy Bypass -File acceptance.ps1 -TestAddress admin@test.example -ExpireUser old1,old2 -Ask
#>
[CmdletBinding()]
param(
    [string] $TestAddress = '',
    [string] $ExpireUser = '',
    [string] $Package = '',
    [switch] $Ask,
    [int] $MostAccounts = 1000
)

Set-StrictMode -Version 2.0
$ErrorActionPreference = 'Stop'

$ServiceName = 'NRVPasswordExpiration'
$ServiceKey = "HKLM:\SYSTEM\CurrentControlSet\Services\$ServiceName"
$SettingsKey = 'HKLM:\Software\Policies\Kadro\PwsentryProMPE\PWExpiration'
$UnitName = 'pwlapse-acceptance'
$ChangePasswordRight = [guid] 'ab721a53-1e2f-11d0-9819-00aa0040529b'
$Unfit = 'skip: '  # the start of what a point says that cannot be tried here
$script:Failures = 0

# Prints the line of one point. The block gives nothing when all is well, else a text; one that begins with
# $Unfit says why the point cannot be tried. The block sees the variables of this function before those of the script.
function Test-Point([string] $Point, [scriptblock] $Check) {
    try {
        $said = (@(& $Check) -join '; ')
    } catch {
        $said = $_.Exception.Message
    }
    if ($said -eq '') {
        Write-Output "pass  $Point"
    } elseif ($said.StartsWith($Unfit)) {
        Write-Output "skip  ${Point}: $($said.Substring($Unfit.Length))"
    } else {
        $script:Failures++
        Write-Output "fail  ${Point}: $said"
    }
}

# What only a person can see.
function Test-Look([string] $Looked, [string] $Task) {
    Test-Point $Looked {
        if (-not $Ask) { "${Unfit}to be seen by a person (-Ask): $Task" }
        elseif ((Read-Host "$Task Is it so (y/n)?") -ne 'y') { 'it was not so' }
    }
}

# Starts a program in the console of this script, in the folder of the service.
function Start-Program([string] $File, [string] $Arguments) {
    $start = New-Object Diagnostics.ProcessStartInfo
    $start.FileName = $File
    $start.Arguments = $Arguments
    $start.WorkingDirectory = $WorkFolder
    $start.UseShellExecute = $false
    $start.RedirectStandardInput = $true
    $start.RedirectStandardOutput = $true
    $start.RedirectStandardError = $true
    return [Diagnostics.Process]::Start($start)
}

# Runs a program to its end. $Line: what it reads on standard input.
function Invoke-Program([string] $File, [string] $Arguments, [string] $Line = '') {
    $process = Start-Program $File $Arguments
    if ($Line -ne '') { $process.StandardInput.WriteLine($Line) }
    $process.StandardInput.Close()
    $errors = $process.StandardError.ReadToEndAsync()
    $output = $process.StandardOutput.ReadToEnd()
    $process.WaitForExit()
    return New-Object PSObject -Property @{
        Status = $process.ExitCode; Output = $output; Errors = $errors.Result.Trim()
    }
}

function Invoke-System([string] $Program, [string] $Arguments) {
    return Invoke-Program "$env:SystemRoot\System32\$Program" $Arguments
}

function Invoke-Pwlapse([string] $Arguments, [string] $Line = '') {
    return Invoke-Program $Pwlapse $Arguments $Line
}

# What is wrong with a program that has ended; nothing when its exit status is one of these.
function Get-Fault($Done, [int[]] $Statuses) {
    if ($Statuses -contains $Done.Status) { return }
    $lines = @(("$($Done.Errors)`n$($Done.Output)" -split "`r?`n") | Where-Object { $_ -ne '' })
    return "exit status $($Done.Status): $($lines | Select-Object -First 1)"
}

function Get-Setting([string] $Name) {
    $values = Get-ItemProperty -LiteralPath $SettingsKey -ErrorAction SilentlyContinue
    if ($null -eq $values -or $values.PSObject.Properties.Name -notcontains $Name) { return $null }
    return $values.$Name
}

function Wait-Service([string] $Wanted) {
    (Get-Service -Name $ServiceName).WaitForStatus($Wanted, [TimeSpan]::FromSeconds(60))
}

# A new enabled account in the unit of the test. Its password is random and nowhere else.
function New-TestUser([string] $User) {
    $account = $Unit.Create('user', "CN=$User")
    $null = $account.Put('sAMAccountName', $User)
    $null = $account.SetInfo()
    $null = $account.psbase.Invoke('SetPassword', $Password)
    $null = $account.Put('userAccountControl', 512)
    $null = $account.SetInfo()
}

function Get-PwdLastSet([string] $User) {
    $searcher = New-Object DirectoryServices.DirectorySearcher
    $searcher.Filter = "(&(objectClass=user)(sAMAccountName=$User))"
    $null = $searcher.PropertiesToLoad.Add('pwdLastSet')
    $row = $searcher.FindOne()
    if ($null -eq $row) { throw "there is no account $User" }
    return [long] $row.Properties['pwdlastset'][0]
}

# What is wrong when another user can read a file or a key that is to be closed to him. A file that everybody can read
# comes first: an error there is no refusal.
function Get-ReadByOther([string] $Path) {
    $isFolder = Test-Path -LiteralPath $Path -PathType Container
    $token = [IntPtr]::Zero
    # 3: over the network; few may log on at a domain controller itself.
    if (-not [Acceptance.Logon]::LogonUser('accept.other', $Domain, $Password, 3, 0, [ref] $token)) {
        throw "accept.other cannot log on (error $([Runtime.InteropServices.Marshal]::GetLastWin32Error()))"
    }
    $context = [Security.Principal.WindowsIdentity]::Impersonate($token)
    try {
        $null = [IO.File]::ReadAllBytes("$env:SystemRoot\win.ini")
        try {
            $machine = [Microsoft.Win32.Registry]::LocalMachine
            if ($Path -like 'HKLM:\*') { $null = $machine.OpenSubKey($Path.Substring(6)) }
            elseif ($isFolder) { $null = [IO.Directory]::GetFiles($Path) }
            else { $null = [IO.File]::ReadAllBytes($Path) }
            return "another user can read $Path"
        } catch [UnauthorizedAccessException], [Security.SecurityException] {
            return
        }
    } finally {
        $context.Undo()
    }
}

# What the log says against the last pass that the service has made since a time.
function Get-PassFault([DateTime] $Since) {
    $filter = @{ LogName = 'Application'; ProviderName = $ServiceName; Id = 10, 11, 12; StartTime = $Since }
    $last = Get-WinEvent -FilterHashtable $filter -MaxEvents 1 -ErrorAction SilentlyContinue
    if ($null -eq $last) { return "${Unfit}no pass since $Since" }
    if ($last.Id -ne 10) { return "event $($last.Id): $($last.Properties[0].Value)" }
}

function Test-CannotChange([byte[]] $Descriptor) {
    $security = New-Object DirectoryServices.ActiveDirectorySecurity
    $security.SetSecurityDescriptorBinaryForm($Descriptor)
    $rules = $security.GetAccessRules($true, $true, [Security.Principal.SecurityIdentifier])
    foreach ($rule in $rules) {
        if ($rule.AccessControlType -eq 'Deny' -and $rule.ObjectType -eq $ChangePasswordRight -and
            @('S-1-1-0', 'S-1-5-10') -contains $rule.IdentityReference.Value) {
            return $true
        }
    }
    return $false
}

# What search and account call say differently of one account; nothing when they agree.
function Compare-Account($Row) {
    $properties = $Row.Properties
    $name = [string] $properties['samaccountname'][0]
    $set = [long] $properties['pwdlastset'][0]
    $expired = ([int] $properties['msds-user-account-control-computed'][0] -band 0x800000) -ne 0
    if ($set -eq 0 -or $expired) { return }  # left to the account calls
    $account = [ADSI] "WinNT://./$name,user"
    $flags = [int] $account.UserFlags.Value
    $age = [int] $account.PasswordAge.Value
    $ageBySearch = [int] ([DateTime]::UtcNow - [DateTime]::FromFileTimeUtc($set)).TotalSeconds
    $mask = 0x10002
    if (($flags -band $mask) -ne ([int] $properties['useraccountcontrol'][0] -band $mask)) { "${name}: flags" }
    if ((($flags -band 0x40) -ne 0) -ne (Test-CannotChange $properties['ntsecuritydescriptor'][0])) {
        "${name}: cannot change the password"
    }
    if ([Math]::Abs($age - $ageBySearch) -gt 2) { "${name}: age $age s by the call, $ageBySearch s by the search" }
    if ([int] $account.PasswordExpired.Value -ne 0) { "${name}: expired by the call only" }
}

function Compare-Accounts {
    $searcher = New-Object DirectoryServices.DirectorySearcher
    $searcher.Filter = '(&(objectCategory=person)(objectClass=user))'
    $searcher.PageSize = 1000
    $searcher.SecurityMasks = 'Dacl'
    foreach ($name in 'sAMAccountName', 'userAccountControl', 'pwdLastSet', 'nTSecurityDescriptor',
        'msDS-User-Account-Control-Computed') {
        $null = $searcher.PropertiesToLoad.Add($name)
    }
    $rows = $searcher.FindAll()
    try {
        $differences = @($rows | Select-Object -First $MostAccounts | ForEach-Object { Compare-Account $_ })
    } finally {
        $rows.Dispose()
    }
    return $differences | Select-Object -First 5
}

# `explain` of a user, as a file that "cmd" redirects under a code page has it.
function Get-Redirected([int] $CodePage, [string] $User) {
    $file = [IO.Path]::GetTempFileName()
    $before = [Console]::OutputEncoding.CodePage
    try {
        $command = "/d /c `"chcp $CodePage >nul & `"$Pwlapse`" explain $User >`"$file`" & chcp $before >nul`""
        $null = Invoke-System 'cmd.exe' $command
        return [Text.Encoding]::GetEncoding($CodePage).GetString([IO.File]::ReadAllBytes($file))
    } finally {
        Remove-Item -LiteralPath $file
    }
}

# A folder for one point, which is removed after the block.
function Use-Folder([scriptblock] $Work) {
    $folder = Join-Path ([IO.Path]::GetTempPath()) ([guid]::NewGuid())
    $null = New-Item -ItemType Directory -Path $folder
    try { & $Work } finally { Remove-Item -LiteralPath $folder -Recurse }
}

# A pass over one account whose maximum age is a day, with a settings file and a folder of its own.
# $By: a line of the settings.
function Test-Expiry([string] $User, [string] $By) {
    if ($User -eq '') { return "${Unfit}-ExpireUser does not name this account" }
    if ((Get-PwdLastSet $User) -eq 0) { return "${Unfit}$User must change the password already" }
    Use-Folder {
        $root = 'HKEY_LOCAL_MACHINE\Software\Policies\Kadro\PwsentryProMPE'
        Set-Content -LiteralPath "$folder\site.reg" -Encoding Unicode -Value @(
            'Windows Registry Editor Version 5.00', '', "[$root\Policy1]", '"policyName"="Acceptance"',
            '"maxPasswordAge"=dword:00000001', '', "[$root\PWExpiration]", '"smtpServer"="127.0.0.1"', $By)
        Set-Content -LiteralPath "$folder\pwsentry_pro_policy1_include.txt" -Encoding Default -Value $User
        Get-Fault (Invoke-Pwlapse "run --registry `"$folder\site.reg`" --work-dir `"$folder`"") @(0)
        if ((Get-PwdLastSet $User) -ne 0) { 'pwdLastSet is not 0' }
    }
}

# Who beside the system, administrators and the service may read a key.
function Get-OtherReaders([string] $Key) {
    if (-not (Test-Path -LiteralPath $Key)) { return "${Unfit}there is no key $Key" }
    $others = @('S-1-1-0', 'S-1-5-7', 'S-1-5-11', 'S-1-5-32-545', 'S-1-5-32-546')
    $rules = (Get-Acl -LiteralPath $Key).GetAccessRules($true, $true, [Security.Principal.SecurityIdentifier])
    $rules | Where-Object {
        $_.AccessControlType -eq 'Allow' -and $others -contains $_.IdentityReference.Value
    } | ForEach-Object { "$($_.IdentityReference.Value) may read $Key" }
}

# --- what must be there

$identity = New-Object Security.Principal.WindowsPrincipal ([Security.Principal.WindowsIdentity]::GetCurrent())
if (-not $identity.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
    Write-Output 'To be run as an administrator.'
    exit 2
}
$service = Get-Service -Name $ServiceName -ErrorAction SilentlyContinue
if ($null -eq $service) {
    Write-Output "The service $ServiceName is not installed here."
    exit 2
}
$imagePath = [Environment]::ExpandEnvironmentVariables((Get-ItemProperty -LiteralPath $ServiceKey).ImagePath)
$programFolder = Split-Path -Parent ($imagePath -replace '^\s*"?(.*?\.exe).*$', '$1')
$Pwlapse = Join-Path $programFolder 'pwlapse.exe'
if (-not (Test-Path -LiteralPath $Pwlapse)) {
    Write-Output "There is no $Pwlapse."
    exit 2
}
$byZip = $programFolder -eq "$env:SystemRoot\pwlapse"
$parameters = Get-ItemProperty -LiteralPath "$ServiceKey\Parameters" -Name workFolder -ErrorAction SilentlyContinue
$hasWorkFolder = $null -ne $parameters
$WorkFolder = if ($hasWorkFolder) { $parameters.workFolder } else { "$env:SystemRoot\System32" }
$account = [string] (Get-ItemProperty -LiteralPath $ServiceKey).ObjectName
$isController = (Get-ItemProperty 'HKLM:\SYSTEM\CurrentControlSet\Control\ProductOptions').ProductType -eq 'LanmanNT'
$rootDse = [ADSI] 'LDAP://rootDSE'

# --- programs and service

foreach ($program in 'pwlapse.exe', 'pwLapseSvc.exe') {
    Test-Point "$program is signed" {
        $signature = Get-AuthenticodeSignature -LiteralPath (Join-Path $programFolder $program)
        if ($signature.Status -eq 'NotSigned') { "${Unfit}this build is not signed" }
        elseif ($signature.Status -ne 'Valid') { "$($signature.Status): $($signature.StatusMessage)" }
    }
    Test-Point "policies let $program run" {
        if ($null -eq (Get-Command Get-AppLockerPolicy -ErrorAction SilentlyContinue)) {
            return "${Unfit}this Windows has no AppLocker"
        }
        Get-AppLockerPolicy -Effective | Test-AppLockerPolicy -Path (Join-Path $programFolder $program) |
            Where-Object { "$($_.PolicyDecision)" -like 'Denied*' } | ForEach-Object { "$($_.PolicyDecision)" }
    }
}
Test-Look 'SmartScreen does not warn of the MSI' 'Download the signed MSI by a browser, and open it: nothing warns.'
Test-Point 'pwlapse is on the PATH of new programs' {
    if ($byZip) { return "${Unfit}the zip does not add to it" }
    $folders = "$([Environment]::GetEnvironmentVariable('Path', 'Machine'))".Split(';') |
        ForEach-Object { [Environment]::ExpandEnvironmentVariables($_).TrimEnd('\') }
    if ($folders -notcontains $programFolder.TrimEnd('\')) { "$programFolder is not in it" }
}
Test-Point 'the start menu has the console and the documents' {
    if ($byZip) { return "${Unfit}the zip has none" }
    $menu = Join-Path ([Environment]::GetFolderPath('CommonPrograms')) 'Password expiration'
    $shell = New-Object -ComObject WScript.Shell
    foreach ($name in 'pwlapse', 'Documents and examples') {
        $link = Join-Path $menu "$name.lnk"
        if (-not (Test-Path -LiteralPath $link)) { "there is no $link" }
        elseif (-not (Test-Path -LiteralPath ($shell.CreateShortcut($link).TargetPath))) { "$link leads nowhere" }
    }
}
Test-Point 'the service stops, starts, pauses and continues' {
    Stop-Service -Name $ServiceName; Wait-Service 'Stopped'
    Start-Service -Name $ServiceName; Wait-Service 'Running'
    Suspend-Service -Name $ServiceName; Wait-Service 'Paused'
    Resume-Service -Name $ServiceName; Wait-Service 'Running'
}
Test-Point 'the service has an identity of its own' {
    $sidType = Get-ItemProperty -LiteralPath $ServiceKey -Name ServiceSidType -ErrorAction SilentlyContinue
    if ($null -eq $sidType -or $sidType.ServiceSidType -eq 0) { 'sc.exe qsidtype says none' }
}
Test-Point 'the service has one privilege' {
    $said = Invoke-System 'sc.exe' "qprivs $ServiceName 4096"
    $held = @([regex]::Matches($said.Output, 'Se\w+Privilege') | ForEach-Object { $_.Value })
    if (($held -join ' ') -ne 'SeChangeNotifyPrivilege') { "it has: $held" }
}
Test-Point 'the service is to be started again after 1, 5 and 15 minutes' {
    $said = Invoke-System 'sc.exe' "qfailure $ServiceName"
    foreach ($delay in '60000', '300000', '900000') {
        if ($said.Output -notmatch "\b$delay\b") { "no restart after $delay ms" }
    }
}
Test-Point 'the service is started again after a failure' {
    $since = Get-Date
    Stop-Process -Name pwLapseSvc -Force
    Start-Sleep -Seconds 5
    $filter = @{ LogName = 'System'; ProviderName = 'Service Control Manager'; Id = 7031; StartTime = $since }
    # Each has the service, how often, and the milliseconds to the restart: 1 to 15 minutes.
    $noted = @(Get-WinEvent -FilterHashtable $filter -ErrorAction SilentlyContinue |
        Where-Object { $_.Properties[0].Value -eq $service.DisplayName })
    if ($noted.Count -eq 0) { return 'the service manager plans no restart (no event 7031)' }
    Start-Sleep -Milliseconds ([int] $noted[0].Properties[2].Value)
    Wait-Service 'Running'
}
Test-Point 'a DLL beside a program is not loaded' {
    Use-Folder {
        Copy-Item -LiteralPath $Pwlapse -Destination $folder
        $before = Invoke-Pwlapse 'check --only directory,mail --format csv'
        # No program could be started with one of these.
        foreach ($dll in 'activeds', 'crypt32', 'dnsapi', 'netapi32', 'secur32', 'security', 'version', 'winhttp') {
            Set-Content -LiteralPath "$folder\$dll.dll" -Value 'planted'
        }
        $after = Invoke-Program "$folder\pwlapse.exe" 'check --only directory,mail --format csv'
        if ($after.Output -ne $before.Output) { Get-Fault $after @(); 'check answers differently with them' }
    }
}
Test-Point 'the service has made a pass' { Get-PassFault ([DateTime]::Today.AddDays(-8)) }
Test-Point 'a pass as a managed or virtual account' {
    if ($account -notmatch '\$$|^NT SERVICE\\') { return "${Unfit}the service runs as $account" }
    Get-PassFault ([DateTime]::Today.AddDays(-8))
}
Test-Point 'the event log has events with their texts' {
    $events = @(Get-WinEvent -FilterHashtable @{ LogName = 'Application'; ProviderName = $ServiceName } -MaxEvents 20)
    $events | Where-Object {
        -not "$($_.Message)".StartsWith(("$($_.Properties[0].Value)" -split "`r?`n")[0])
    } | Select-Object -First 1 | ForEach-Object { "event $($_.Id) has another text" }
}
Test-Point 'other users cannot read the settings with the password' { Get-OtherReaders $SettingsKey }
Test-Point 'the group policy templates are well formed where the editor reads them' {
    $definitions = "$env:SystemRoot\PolicyDefinitions"
    if (-not (Test-Path -LiteralPath "$definitions\pwlapse.admx")) { return "${Unfit}they are not in $definitions" }
    foreach ($file in 'pwlapse.admx', 'en-US\pwlapse.adml', 'de-DE\pwlapse.adml') {
        $null = [xml] (Get-Content -LiteralPath "$definitions\$file" -Raw -Encoding UTF8)
    }
}
Test-Look 'the group policy editor shows the settings' ('Open gpedit.msc: Computer Configuration, Administrative ' +
    'Templates, Password expiration has its categories, and each setting its help.')

# --- directory and accounts

Test-Point 'ADSI on a domain controller binds to this machine' {
    if (-not $isController) { return "${Unfit}this is no domain controller" }
    $bound = [string] $rootDse.dnsHostName
    $here = [Net.Dns]::GetHostEntry('').HostName
    if ($bound -ne $here) { "it binds to $bound, and this is $here" }
}
Test-Point 'search and account calls agree' {
    if (-not $isController) { return "${Unfit}this is no domain controller" }
    Compare-Accounts
}
Test-Point 'a pass relies on the search' {
    if (-not $isController) { return "${Unfit}this is no domain controller" }
    $done = Invoke-Pwlapse 'run --dry-run'
    Get-Fault $done @(0, 1)
    [regex]::Matches($done.Output, '[^\r\n]*each( account)? was read by itself[^\r\n]*') | ForEach-Object { $_.Value }
}
$expired = @($ExpireUser -split '[ ,]+') + ''
Test-Point 'a password that the account calls expired has to be changed' { Test-Expiry $expired[0] '' }
Test-Point 'a password that the directory expired has to be changed' { Test-Expiry $expired[1] '"expireBy"="ldap"' }

# --- the console

foreach ($question in 'list', 'list --format json', 'forecast', 'check', 'status --max-age 100000h', 'settings') {
    Test-Point "pwlapse $question answers" { Get-Fault (Invoke-Pwlapse $question) @(0, 1) }
}
Test-Look 'the console shows every letter' 'Type "pwlapse list" in a console: the letters of all names are right.'

# --- accounts of the test

$isMade = $false
try {
    $context = [string] $rootDse.defaultNamingContext
    $Domain = $context -replace '^DC=', '' -replace ',DC=', '.'
    $bytes = New-Object byte[] 24
    [Security.Cryptography.RandomNumberGenerator]::Create().GetBytes($bytes)
    $Password = [Convert]::ToBase64String($bytes) + 'aA1!'
    $parent = [ADSI] "LDAP://$context"
    if ([ADSI]::Exists("LDAP://OU=$UnitName,$context")) { throw "OU=$UnitName is there already: remove it" }
    $unit = $parent.Create('organizationalUnit', "OU=$UnitName")
    $null = $unit.SetInfo()
    $isMade = $true

    $mueller = 'accept.m' + [char] 0xFC + 'ller'
    New-TestUser $mueller
    $ansi = [Text.Encoding]::Default
    $isInCodePage = $ansi.GetString($ansi.GetBytes($mueller)) -eq $mueller
    foreach ($codePage in 437, 1252, 932, 65001) {
        Test-Point "redirected output is right under code page $codePage" {
            if (-not $isInCodePage) { return "${Unfit}the ANSI code page lacks a letter" }
            $encoding = [Text.Encoding]::GetEncoding($codePage, (New-Object Text.EncoderReplacementFallback '?'),
                (New-Object Text.DecoderReplacementFallback '?'))
            $wanted = $encoding.GetString($encoding.GetBytes($mueller))
            if (-not (Get-Redirected $codePage $mueller).Contains($wanted)) { "$wanted is not in it" }
        }
    }
    Test-Point 'PowerShell reads the output right' {
        if (-not $isInCodePage) { return "${Unfit}the ANSI code page lacks a letter" }
        $console = [Console]::OutputEncoding
        if ($console.GetString($console.GetBytes($mueller)) -ne $mueller) {
            return "${Unfit}the code page of the console lacks a letter"
        }
        $read = & $Pwlapse explain $mueller | Out-String
        if (-not $read.Contains($mueller)) { "$mueller is not in it" }
    }
    Test-Point 'an argument beyond the code page names nobody else' {
        # A Polish letter, of which Windows 1252 would make a plain one.
        New-TestUser 'accept.lukasz'
        $polish = [string] [char] 0x142
        if ($ansi.GetString($ansi.GetBytes($polish)) -eq $polish) { return "${Unfit}the ANSI code page has the letter" }
        if ((Invoke-Pwlapse 'explain accept.lukasz').Status -ne 0) { 'it does not explain accept.lukasz' }
        if ((Invoke-Pwlapse "explain accept.${polish}ukasz").Status -eq 0) { 'it explains another account' }
    }

    New-TestUser 'accept.other'
    $null = Add-Type -Namespace Acceptance -Name Logon -MemberDefinition @'
[DllImport("advapi32.dll", CharSet = CharSet.Unicode, SetLastError = true)]
public static extern bool LogonUser(
    string user, string domain, string password, int type, int provider, out IntPtr token);
'@
    Test-Point 'another user cannot read a protected password' {
        Use-Folder {
            $null = Invoke-System 'icacls.exe' "`"$folder`" /grant *S-1-1-0:(OI)(CI)R"
            $done = Invoke-Pwlapse "protect-secret `"$folder\secret`"" 'Acceptance-Secret-1'
            Get-Fault $done @(0)
            Set-Content -LiteralPath "$folder\open" -Value 'open'
            if ($null -eq (Get-ReadByOther "$folder\open")) { 'another file is refused, too: this shows nothing' }
            Get-ReadByOther "$folder\secret"
            if ((Get-Content -LiteralPath "$folder\secret" -Raw) -notmatch '^pwlapse-protected:[0-9A-Fa-f]{100,}') {
                'the file is not encrypted'
            }
        }
    }
    Test-Point 'another user cannot read the key of the settings' {
        if (-not (Test-Path -LiteralPath $SettingsKey)) { return "${Unfit}there is no $SettingsKey" }
        Get-ReadByOther $SettingsKey
    }
    Test-Point 'another user cannot read the work folder' {
        if (-not $hasWorkFolder) { return "${Unfit}the service works in the system's folder" }
        Get-ReadByOther $WorkFolder
    }
    Test-Point 'the delegated right expires a password, and does nothing else' {
        $dsacls = "$env:SystemRoot\System32\dsacls.exe"
        if (-not (Test-Path -LiteralPath $dsacls)) { return "${Unfit}there is no dsacls.exe" }
        New-TestUser 'accept.delegate'
        $right = "`"OU=$UnitName,$context`" /I:S /G `"$Domain\accept.delegate:RPWP;pwdLastSet;user`""
        Get-Fault (Invoke-Program $dsacls $right) @(0)
        New-TestUser 'accept.delegated'  # after it: it inherits at once
        $path = "LDAP://$($rootDse.dnsHostName)/CN=accept.delegated,OU=$UnitName,$context"
        $delegate = { New-Object DirectoryServices.DirectoryEntry($path, "$Domain\accept.delegate", $Password) }
        $entry = & $delegate
        $null = $entry.Put('pwdLastSet', 0)
        $null = $entry.SetInfo()
        $entry = & $delegate
        $null = $entry.Put('description', 'Acceptance')
        $isRefused = $false
        try { $null = $entry.SetInfo() } catch { $isRefused = $true }
        if (-not $isRefused) { 'it writes description, too' }
        if ((Get-PwdLastSet 'accept.delegated') -ne 0) { 'pwdLastSet is not 0' }
    }
} catch {
    $fault = $_.Exception.Message
    Test-Point 'the accounts of the test' { $fault }
} finally {
    if ($isMade) { $null = $unit.psbase.DeleteTree() }
}

# --- mail

Test-Point 'the mail server is found right' {
    $done = Invoke-Pwlapse 'check --only mail'
    Get-Fault $done @(0)
    $done.Output -split "`r?`n" | Where-Object { $_ -match '^\s*fault' }
}
Test-Point 'a mail goes out' {
    if ($TestAddress -eq '') { return "${Unfit}no -TestAddress was given" }
    Get-Fault (Invoke-Pwlapse "test-mail $TestAddress") @(0)
}
Test-Point 'the service takes a protected password' {
    $file = Get-Setting 'smtpPasswordFile'
    if ("$file" -eq '') { return "${Unfit}smtpPasswordFile is not set" }
    if ("$(Get-Content -LiteralPath $file -TotalCount 1)" -notlike 'pwlapse-protected:*') {
        return "${Unfit}$file is not protected"
    }
    Get-PassFault ([IO.File]::GetLastWriteTime($file))
}
Test-Point 'a login by NTLM is bound to its connection' {
    if ($TestAddress -eq '') { return "${Unfit}no -TestAddress was given" }
    if ("$(Get-Setting 'smtpAuthMethod')" -ne 'NTLM') { return "${Unfit}smtpAuthMethod is not NTLM" }
    # The server has to ask for it: its extended protection is to be on "Require".
    Get-Fault (Invoke-Pwlapse "test-mail $TestAddress") @(0)
}
Test-Point 'TLS 1.3 is taken where the system has it' {
    $key = 'HKLM:\SYSTEM\CurrentControlSet\Control\SecurityProviders\SCHANNEL'
    $logging = Get-ItemProperty -LiteralPath $key -Name EventLogging -ErrorAction SilentlyContinue
    if ([Environment]::OSVersion.Version.Build -lt 20348) { return "${Unfit}this Windows has no TLS 1.3" }
    if ($null -eq $logging -or ($logging.EventLogging -band 4) -eq 0) {
        return "${Unfit}set EventLogging in $key to 7, restart, and run this again"
    }
    $since = Get-Date
    $null = Invoke-Pwlapse 'check --only mail'
    Start-Sleep -Seconds 5
    $filter = @{ LogName = 'System'; ProviderName = 'Schannel'; Id = 36880; StartTime = $since }
    $events = @(Get-WinEvent -FilterHashtable $filter -ErrorAction SilentlyContinue)
    if ($events.Count -eq 0) { return "${Unfit}no handshake was seen; is smtpSsl or smtpStartTls on?" }
    if (@($events | Where-Object { $_.Message -match 'TLS 1\.3|\b772\b' }).Count -eq 0) {
        'the handshakes were not TLS 1.3: does the mail server have it?'
    }
}

# --- the installation

Test-Point 'an upgrade whose service does not start is taken back' {
    if ($Package -eq '') { return "${Unfit}no -Package was given" }
    $before = (Get-FileHash -LiteralPath $Pwlapse).Hash
    $null = New-Item -Path "$ServiceKey\Parameters" -ErrorAction SilentlyContinue
    Set-ItemProperty -LiteralPath "$ServiceKey\Parameters" -Name workFolder -Value 'C:\no such folder\of the service'
    try {
        Get-Fault (Invoke-System 'msiexec.exe' "/qn /norestart /i `"$Package`"") @(1603)
    } finally {
        if ($hasWorkFolder) {
            Set-ItemProperty -LiteralPath "$ServiceKey\Parameters" -Name workFolder -Value $WorkFolder
        } else {
            Remove-ItemProperty -LiteralPath "$ServiceKey\Parameters" -Name workFolder
        }
    }
    if ((Get-FileHash -LiteralPath $Pwlapse).Hash -ne $before) { 'the programs are not those of before' }
    Start-Service -Name $ServiceName; Wait-Service 'Running'
}
Test-Point 'an upgrade replaces programs that are in use' {
    if ($Package -eq '') { return "${Unfit}no -Package was given" }
    $user = Start-Program $Pwlapse "protect-secret `"$([IO.Path]::GetTempPath())never-written`""  # waits for a line
    try {
        # 3010: done, and the file in use goes with the next start of the machine.
        Get-Fault (Invoke-System 'msiexec.exe' "/qn /norestart /i `"$Package`"") @(0, 3010)
    } finally {
        if (-not $user.HasExited) { $user.Kill() }
    }
    Wait-Service 'Running'
    Get-Fault (Invoke-Pwlapse '--version') @(0)
}

if ($script:Failures -gt 0) {
    Write-Output "$($script:Failures) failed"
    exit 1
}
Write-Output 'nothing failed'
exit 0
