# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# Filled backup scripts run as cron runs them: a process of their own, by
# path, as root, in the locale cron passes on. Runs inside the test sandbox
# (it mounts file systems and uses the fixed status paths). The template is
# filled here line by line as the pane's filler does (each placeholder line
# replaced once, names escaped for a double-quoted literal); the filler
# itself is tested in test_scripts.
# Names are bytes: every non-ASCII literal below is made binary with .b.
require_relative "../ruby/sandbox_case"

TEMPLATE = ENV.fetch("OV_TEMPLATE")
PSYNC = ENV.fetch("OV_PSYNC")
FILL = ENV.fetch("OV_FILL_SCRIPT")

class TestEngine < Test::Unit::TestCase
  include SandboxCase
  DAILY = "/Library/Application Support/Orvane/.daily"

  def quoted(text) = "\"#{text.b.gsub(/[\\"#]/) { "\\#{Regexp.last_match(0)}" }}\""

  def fill(lines)
    File.binread(TEMPLATE).each_line.map do |line|
      key = line.chomp
      lines.key?(key) ? "#{lines.delete(key)}\n" : line
    end.join
  end

  # Writes a filled daily script and runs it by its path; returns its status.
  def run_script(sources:, destinations:, mirror: true, net: nil, contents: "Everything", locale: "C.UTF-8")
    lines = {
      "#ov_backupCommand" => "backupCommand = #{quoted("#{PSYNC}#{mirror ? ' -d' : ''}")}",
      "#ov_sourceFolders" => "sourceFolders = [ #{sources.map { |s| quoted(s) }.join(', ')} ]",
      "#ov_destFolders" => "destFolders = [ #{destinations.map { |d| quoted(d) }.join(', ')} ]",
      "#ov_logfile" => "logfile = #{quoted(log_file)}",
      "#ov_lastBackup" => "lastBackup = #{quoted(File.join(@dir, '.lastbackup'))}",
      "#ov_lastRun" => "lastRun = #{quoted(File.join(@dir, '.lastrun'))}",
      "#ov_disks" => "disksFile = #{quoted(File.join(@dir, '.disks'))}",
      "#ov_archiveRecord" => "archiveRecord = #{quoted(File.join(@dir, '.archives'))}",
      "shouldArchive = shouldArchive" => "shouldArchive = #{net ? 'true' : 'false'}",
      "maxArchives = 0" => "maxArchives = 3",
      "safetyNetFolder = safetyNetFolder" => "safetyNetFolder = #{quoted(net || '')}",
      "archiveContents = \"\"" => "archiveContents = #{quoted(contents)}",
    }
    script = File.join(@dir, "orvane_daily.rb")
    File.binwrite(script, fill(lines))
    File.chmod(0o700, script)
    system({ "LANG" => locale, "LC_ALL" => locale }, script, out: File::NULL, err: File::NULL, unsetenv_others: false)
    $?.exitstatus
  end

  # A new user keeps the default options: the Safety Net is on, in a folder
  # of their Documents, which did not exist when the module first started
  # (so nothing made the Safety Net folder). Filled by the pane's own
  # builder from the installed template and run as cron runs it, the first
  # backup backs up; before Documents exists, it says why it cannot.
  def test_the_first_backup_with_the_default_options
    jane = SandboxCase.user("ovjane")
    documents = File.join(jane.dir, "Documents")
    FileUtils.rm_rf(documents)
    FileUtils.mkdir_p(DAILY)
    source = File.join(jane.dir, "Pictures")
    destination = File.join(@dir, "backup")
    FileUtils.mkdir_p(destination)
    assert(system("runuser", "-u", "ovjane", "--", "mkdir", "-p", source))
    assert(system("runuser", "-u", "ovjane", "--", "sh", "-c", "echo first > \"$1\"/photo", "sh", source))
    net = File.join(documents, "Safety Net Archives")
    script = File.join(@dir, "orvane_daily.rb")
    fill = IO.popen([FILL, "--user", "ovjane", "--safetynet", net, "3", "Everything", source, destination], "rb", &:read)
    assert($?.success?)
    File.binwrite(script, fill)
    File.chmod(0o700, script)
    cron = ->(*prefix) { system(*prefix, "env", "-i", "LANG=C.UTF-8", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", script) }

    assert_false(cron.call)
    assert_match(%r{#{source}: not backed up, so that no earlier version at #{destination} is lost: the Safety Net folder #{net} is missing and cannot be made: the folder it belongs in, #{documents}, does not exist \(is its disk connected\?\)}, errors)

    assert(system("runuser", "-u", "ovjane", "--", "mkdir", documents))
    assert(cron.call, errors)
    assert_equal("first\n", File.binread(File.join(destination, "photo")))
    assert_equal([jane.uid, 0o700], File.stat(net).then { |st| [st.uid, st.mode & 0o7777] })
    assert_false(File.exist?(ERRORS))
    assert_match(/Daily: backup complete\n\z/, File.binread("/var/log/orvane_daily.log"))
    assert_equal(0o640, File.stat("/var/log/orvane_daily.log").mode & 0o777)

    sleep 1.1 # a rerun's archive is named by its second
    assert(system("runuser", "-u", "ovjane", "--", "sh", "-c", "echo second > \"$1\"/photo", "sh", source))
    assert(cron.call, errors)
    assert_equal("second\n", File.binread(File.join(destination, "photo")))
    kept = Dir.glob(File.join(net, "* Daily", destination.delete_prefix("/"), "photo"))
    assert_equal(["first\n"], kept.map { |f| File.binread(f) })
    assert_match(%r{\Ascheduled \d\d/\d\d/\d\d complete\n\z}, File.binread(File.join(DAILY, ".lastrun")))
  end

  # Non-ASCII and invalid UTF-8 names everywhere, under a UTF-8 locale.
  def test_non_ascii_paths_under_a_utf8_locale
    source = File.join(@dir, "Données \xff\xfe brutes".b)
    destination = File.join(@dir, "sauvegarde été".b)
    net = File.join(@dir, "filet de sécurité".b, "Safety Net Archives")
    FileUtils.mkdir_p([destination, net])
    FileUtils.mkdir_p(File.join(source, "dossier ✓".b))
    File.binwrite(File.join(source, "dossier ✓".b, "é\xe9.txt".b), "nouveau")
    File.binwrite(File.join(destination, "dossier ✓".b, "é\xe9.txt".b).tap { |p| FileUtils.mkdir_p(File.dirname(p)) }, "ancien")
    File.utime(Time.now - 3600, Time.now - 3600, File.join(destination, "dossier ✓".b, "é\xe9.txt".b))

    assert_equal(0, run_script(sources: [source], destinations: [destination], net: net), errors)
    assert_equal("nouveau", File.binread(File.join(destination, "dossier ✓".b, "é\xe9.txt".b)))
    archive = Dir.children(net)
    assert_equal(1, archive.size)
    kept = File.join(net, archive.first, destination.delete_prefix("/"), "dossier ✓".b, "é\xe9.txt".b)
    assert_equal("ancien", File.binread(kept))
    assert_false(File.exist?(ERRORS))
    assert_match(/backup complete/, File.binread(log_file))
  end

  # A disk that is not there: its bare mount point is never taken for it.
  def test_a_mount_point_without_its_disk
    source = File.join(@dir, "media", "photos")
    destination = File.join(@dir, "media", "backup")
    mount_tmpfs(source, name: "ov-photos")
    mount_tmpfs(destination, name: "ov-backup")
    200.times { |i| File.binwrite(File.join(source, "photo #{i}"), "photo #{i}") }
    assert_equal(0, run_script(sources: [source], destinations: [destination]), errors)
    assert_equal(200, Dir.children(destination).size)

    # The destination's disk goes: nothing lands on the system disk.
    unmount(destination)
    assert_equal(1, run_script(sources: [source], destinations: [destination]))
    assert_empty(Dir.children(destination), "nothing was written into the bare mount point")
    assert_match(%r{#{Regexp.escape(destination)}: the disk that held this backup is not there}, errors)
    assert(File.exist?(File.join(@dir, ".lastbackup")), "the run still ends and says so")

    # The source's disk goes: the mirror does not empty the backup.
    mount_tmpfs(destination, name: "ov-backup")
    unmount(source)
    File.binwrite(File.join(destination, "kept"), "kept")
    assert_equal(1, run_script(sources: [source], destinations: [destination]))
    assert_equal(["kept"], Dir.children(destination))
    assert_match(%r{#{Regexp.escape(source)}: the source folder is empty \(is its disk connected\?\); it was not mirrored}, errors)

    # Something in the bare mount point: still not the disk it was.
    File.binwrite(File.join(source, "stray"), "stray")
    assert_equal(1, run_script(sources: [source], destinations: [destination]))
    assert_equal(["kept"], Dir.children(destination))
    assert_match(/the source folder is not on the disk it was on at the last backup/, errors)
  end
end
