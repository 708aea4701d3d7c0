<#
.SYNOPSIS
Shows on a real Windows what no test elsewhere can: prints pass, fail or skip for each point, line by line.

.DESCRIPTION
For a test domain. Run it in an elevated Windows PowerShell 5.1 on the machine on which the service is installed and
configured, best a domain controller. It makes an organizational unit with a few accounts and removes it at the end.
Mail goes out with -TestAddress only, and a password is forced to be changed with -ExpireUser only. The service is
paused, continued, stopped and started.

The exit status is 0 when nothing failed, 1 when something did, 2 when it could not begin.

.PARAMETER TestAddress
Gets one test mail, over the mail server of the settings.

.PARAMETER ExpireUser
A test account whose password is more than a day old. It must be changed at its next logon afterwards.

.PARAMETER MostAccounts
Of how many accounts the two ways of reading them are compared.

.EXAMPLE
powershell -ExecutionPolicy Bypass -File acceptance.ps1 -TestAddress admin@test.example -ExpireUser old.test
#>
[CmdletBinding()]
param(
    [string] $TestAddress = '',
    [string] $ExpireUser = '',
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
# $Unfit says why the point cannot be tried.
function Test-Point([string] $Name, [scriptblock] $Check) {
    try {
        $said = (@(& $Check) -join '; ')
    } catch {
        $said = $_.Exception.Message
    }
    if ($said -eq '') {
        Write-Output "pass  $Name"
    } elseif ($said.StartsWith($Unfit)) {
        Write-Output "skip  ${Name}: $($said.Substring($Unfit.Length))"
    } else {
        $script:Failures++
        Write-Output "fail  ${Name}: $said"
    }
}

# Runs a program to its end, in the console of this script.
function Invoke-Program([string] $File, [string] $Arguments, [Text.Encoding] $Encoding) {
    $start = New-Object Diagnostics.ProcessStartInfo
    $start.FileName = $File
    $start.Arguments = $Arguments
    $start.UseShellExecute = $false
    $start.RedirectStandardOutput = $true
    $start.RedirectStandardError = $true
    $start.StandardOutputEncoding = $Encoding
    $process = [Diagnostics.Process]::Start($start)
    $errors = $process.StandardError.ReadToEndAsync()
    $output = $process.StandardOutput.ReadToEnd()
    $process.WaitForExit()
    return New-Object PSObject -Property @{
        Status = $process.ExitCode; Output = $output; Errors = $errors.Result.Trim()
    }
}

function Invoke-Pwlapse([string] $Arguments) {
    return Invoke-Program $script:Pwlapse $Arguments ([Text.Encoding]::Default)
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

# A new enabled account. Its password is of no use to anybody: it is random and not kept.
function New-TestUser([ADSI] $Unit, [string] $Name) {
    $bytes = New-Object byte[] 24
    $random = [Security.Cryptography.RandomNumberGenerator]::Create()
    $random.GetBytes($bytes)
    $user = $Unit.Create('user', "CN=$Name")
    $null = $user.Put('sAMAccountName', $Name)
    $null = $user.Put('sn', 'Acceptance')
    $user.SetInfo()
    $user.psbase.Invoke('SetPassword', [Convert]::ToBase64String($bytes) + 'aA1!')
    $null = $user.Put('userAccountControl', 512)
    $user.SetInfo()
    return $user
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
    try {
        $command = "/d /c `"chcp $CodePage >nul & `"$script:Pwlapse`" explain $User >`"$file`"`""
        $null = Invoke-Program "$env:SystemRoot\System32\cmd.exe" $command ([Text.Encoding]::Default)
        return [Text.Encoding]::GetEncoding($CodePage).GetString([IO.File]::ReadAllBytes($file))
    } finally {
        Remove-Item -LiteralPath $file
    }
}

# A pass over one account whose maximum age is a day, with a settings file and a folder of its own.
function Test-Expiry {
    $folder = Join-Path ([IO.Path]::GetTempPath()) ([guid]::NewGuid())
    $null = New-Item -ItemType Directory -Path $folder
    try {
        $root = 'HKEY_LOCAL_MACHINE\Software\Policies\Kadro\PwsentryProMPE'
        Set-Content -LiteralPath "$folder\site.reg" -Encoding Unicode -Value @(
            'Windows Registry Editor Version 5.00', '', "[$root\Policy1]", '"policyName"="Acceptance"',
            '"maxPasswordAge"=dword:00000001', '', "[$root\PWExpiration]", '"smtpServer"="127.0.0.1"')
        Set-Content -LiteralPath "$folder\pwsentry_pro_policy1_include.txt" -Encoding Default -Value $ExpireUser
        $done = Invoke-Pwlapse "run --registry `"$folder\site.reg`" --work-dir `"$folder`""
        Get-Fault $done @(0)
        $searcher = New-Object DirectoryServices.DirectorySearcher
        $searcher.Filter = "(&(objectClass=user)(sAMAccountName=$ExpireUser))"
        $null = $searcher.PropertiesToLoad.Add('pwdLastSet')
        $row = $searcher.FindOne()
        if ($null -eq $row) { 'the account is not there' }
        elseif ([long] $row.Properties['pwdlastset'][0] -ne 0) { 'pwdLastSet is not 0' }
    } finally {
        Remove-Item -LiteralPath $folder -Recurse
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
$script:Pwlapse = Join-Path $programFolder 'pwlapse.exe'
if (-not (Test-Path -LiteralPath $script:Pwlapse)) {
    Write-Output "There is no $($script:Pwlapse)."
    exit 2
}
$isController = (Get-ItemProperty 'HKLM:\SYSTEM\CurrentControlSet\Control\ProductOptions').ProductType -eq 'LanmanNT'
$rootDse = [ADSI] 'LDAP://rootDSE'

# --- programs and service

foreach ($program in 'pwlapse.exe', 'pwLapseSvc.exe') {
    Test-Point "$program is signed" {
        $signature = Get-AuthenticodeSignature -LiteralPath (Join-Path $programFolder $program)
        if ($signature.Status -eq 'NotSigned') { "${Unfit}this build is not signed" }
        elseif ($signature.Status -ne 'Valid') { "$($signature.Status): $($signature.StatusMessage)" }
    }
}
Test-Point 'pwlapse is on the PATH of new programs' {
    $folders = "$([Environment]::GetEnvironmentVariable('Path', 'Machine'))".Split(';') |
        ForEach-Object { [Environment]::ExpandEnvironmentVariables($_).TrimEnd('\') }
    if ($folders -notcontains $programFolder.TrimEnd('\')) { "$programFolder is not in it" }
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
Test-Point 'the service is started again after a failure' {
    $said = Invoke-Program "$env:SystemRoot\System32\sc.exe" "qfailure $ServiceName" ([Text.Encoding]::Default)
    foreach ($delay in '60000', '300000', '900000') {
        if ($said.Output -notmatch "\b$delay\b") { "no restart after $delay ms" }
    }
}
Test-Point 'programs take their DLLs from the system only' {
    $running = Get-Process -Name pwLapseSvc
    $running.Modules | Where-Object {
        $_.FileName -notlike "$env:SystemRoot\*" -and (Split-Path -Leaf $_.FileName) -ne 'pwLapseSvc.exe'
    } | ForEach-Object { $_.FileName }
}
Test-Point 'the event log has events with their texts' {
    $events = @(Get-WinEvent -FilterHashtable @{ LogName = 'Application'; ProviderName = $ServiceName } -MaxEvents 20)
    $events | Where-Object { "$($_.Message)" -eq '' } | Select-Object -First 1 |
        ForEach-Object { "event $($_.Id) has no text" }
}
Test-Point 'other users cannot read the settings with the password' { Get-OtherReaders $SettingsKey }
Test-Point 'the group policy templates are well formed where the editor reads them' {
    $definitions = "$env:SystemRoot\PolicyDefinitions"
    if (-not (Test-Path -LiteralPath "$definitions\pwlapse.admx")) { return "${Unfit}they were not copied to $definitions" }
    foreach ($file in 'pwlapse.admx', 'en-US\pwlapse.adml', 'de-DE\pwlapse.adml') {
        $null = [xml] (Get-Content -LiteralPath "$definitions\$file" -Raw -Encoding UTF8)
    }
}

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
Test-Point 'an expired password has to be changed at the next logon' {
    if ($ExpireUser -eq '') { return "${Unfit}no -ExpireUser was given" }
    Test-Expiry
}

# --- the console

foreach ($question in 'list', 'list --format json', 'forecast', 'check', 'status --max-age 100000h', 'settings') {
    Test-Point "pwlapse $question answers" { Get-Fault (Invoke-Pwlapse $question) @(0, 1) }
}
$unit = $null
try {
    $domain = [ADSI] "LDAP://$($rootDse.defaultNamingContext)"
    $unit = $domain.Create('organizationalUnit', "OU=$UnitName")
    $unit.SetInfo()
    $name = 'accept.m' + [char] 0xFC + 'ller'
    $null = New-TestUser $unit $name
    $ansi = [Text.Encoding]::Default
    foreach ($codePage in 437, 1252, 932, 65001) {
        Test-Point "redirected output is right under code page $codePage" {
            if ($ansi.GetString($ansi.GetBytes($name)) -ne $name) { return "${Unfit}the ANSI code page lacks a letter" }
            $encoding = [Text.Encoding]::GetEncoding($codePage, (New-Object Text.EncoderReplacementFallback '?'),
                (New-Object Text.DecoderReplacementFallback '?'))
            $wanted = $encoding.GetString($encoding.GetBytes($name))
            if (-not (Get-Redirected $codePage $name).Contains($wanted)) { "$wanted is not in it" }
        }
    }
    Test-Point 'an argument beyond the code page names nobody else' {
        # A Polish letter, of which Windows 1252 would make a plain one.
        $null = New-TestUser $unit 'accept.lukasz'
        $other = 'accept.' + [char] 0x142 + 'ukasz'
        if ($ansi.GetString($ansi.GetBytes([string] [char] 0x142)) -eq [string] [char] 0x142) {
            return "${Unfit}the ANSI code page has the letter"
        }
        $done = Invoke-Pwlapse "explain $other"
        if ($done.Status -eq 0) { 'it explains accept.lukasz' }
    }
} catch {
    Test-Point 'test accounts' { throw $_ }
} finally {
    if ($null -ne $unit -and $null -ne $unit.psbase.Guid) { $unit.psbase.DeleteTree() }
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

if ($script:Failures -gt 0) {
    Write-Output "$($script:Failures) failed"
    exit 1
}
Write-Output 'nothing failed'
exit 0
