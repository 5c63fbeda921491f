<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="ja_JP" sourcelanguage="en">
<context>
    <name>UninstallMainWindow</name>
    <message>
        <source>MainWindow</source>
        <translation>メインウィンドウ</translation>
    </message>
    <message>
        <source>Brisvnae Uninstall</source>
        <translation>Brisvane のアンインストール</translation>
    </message>
    <message>
        <source>Backup Keys</source>
        <translation>キーをバックアップ</translation>
    </message>
    <message>
        <source>uninstalling ...</source>
        <translation>アンインストールしています ...</translation>
    </message>
</context>
<context>
    <name>CMainWindow</name>
    <message>
        <source>Brisvane Uninstaller</source>
        <translation>Brisvane アンインストーラ</translation>
    </message>
    <message>
        <source>Uninstall</source>
        <translation>アンインストール</translation>
    </message>
    <message>
        <source>This will uninstall Brisvane including all Spaces and user settings.</source>
        <translation>Brisvane を、すべての Spaces とユーザー設定を含めてアンインストールします。</translation>
    </message>
    <message>
        <source>Backup</source>
        <translation>バックアップ</translation>
    </message>
    <message>
        <source>You will no be able to access your Spaces anymore</source>
        <translation>Spaces にアクセスできなくなります</translation>
    </message>
    <message>
        <source>quiting Brisvane ...</source>
        <translation>Brisvane を終了しています ...</translation>
    </message>
    <message>
        <source>backing up key file ...</source>
        <translation>キーファイルをバックアップしています ...</translation>
    </message>
    <message>
        <source>deleting configuration ...</source>
        <translation>設定を削除しています ...</translation>
    </message>
    <message>
        <source>deleting application data ...</source>
        <translation>アプリケーションデータを削除しています ...</translation>
    </message>
    <message>
        <source>removing application bundle ...</source>
        <translation>アプリケーションバンドルを削除しています ...</translation>
    </message>
    <message>
        <source>Uninstall successful.</source>
        <translation>アンインストールが完了しました。</translation>
    </message>
    <message>
        <source>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</source>
        <translation>https://www.brisvane.com/redirector.php?lang=en&amp;page=uninstall</translation>
    </message>
    <message>
        <source>Unable to quit Brisvane.</source>
        <translation>Brisvane を終了できませんでした。</translation>
    </message>
    <message>
        <source>Unable to backup key files</source>
        <translation>キーファイルをバックアップできませんでした</translation>
    </message>
    <message>
        <source>Failed to delete %1.
Please delete by yourself.</source>
        <translation>%1 を削除できませんでした。
手動で削除してください。</translation>
    </message>
    <message>
        <source>Unable to uninstall Brisvane</source>
        <translation>Brisvane をアンインストールできませんでした</translation>
    </message>
    <message>
        <source>Another uninstall is running.</source>
        <translation>別のアンインストールが実行中です。</translation>
    </message>
    <message>
        <source>not a folder, file or link</source>
        <translation>フォルダ、ファイル、リンクのいずれでもありません</translation>
    </message>
    <message>
        <source>the copy differs from the original</source>
        <translation>コピーが元のデータと一致しません</translation>
    </message>
    <message>
        <source>Permission denied</source>
        <translation>許可がありません</translation>
    </message>
    <message>
        <source>Operation not permitted</source>
        <translation>操作は許可されていません</translation>
    </message>
    <message>
        <source>No space left on device</source>
        <translation>デバイスに空き領域がありません</translation>
    </message>
    <message>
        <source>Read-only file system</source>
        <translation>読み込み専用のファイルシステムです</translation>
    </message>
    <message>
        <source>Directory not empty</source>
        <translation>ディレクトリが空ではありません</translation>
    </message>
    <message>
        <source>No such file or directory</source>
        <translation>そのようなファイルやディレクトリはありません</translation>
    </message>
    <message>
        <source>Not a directory</source>
        <translation>ディレクトリではありません</translation>
    </message>
    <message>
        <source>Too many levels of symbolic links</source>
        <translation>シンボリックリンクの階層が多すぎます</translation>
    </message>
    <message>
        <source>Input/output error</source>
        <translation>入出力エラーです</translation>
    </message>
    <message>
        <source>deleting other files of Brisvane ...</source>
        <translation>Brisvane のその他のファイルを削除しています ...</translation>
    </message>
    <message>
        <source>en</source>
        <extracomment>The language of this catalogue as a locale name: sizes are written in its format.</extracomment>
        <translation>ja</translation>
    </message>
    <message>
        <source>Show Details</source>
        <translation>詳細を表示</translation>
    </message>
    <message>
        <source>Hide Details</source>
        <translation>詳細を隠す</translation>
    </message>
    <message>
        <source>%1 will be freed</source>
        <translation>%1 が解放されます</translation>
    </message>
    <message>
        <source>Calculating…</source>
        <translation>計算中…</translation>
    </message>
    <message>
        <source>%1 freed.</source>
        <translation>%1 を解放しました。</translation>
    </message>
</context>
</TS>
